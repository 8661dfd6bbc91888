// A registry in memory for tests: values keep the order in which they were set, and any call can be made to
// fail.
#pragma once

#include "platform/registry.h"

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

// What the opaque key of this registry is.
struct scripted_key {
    registry_hive hive;
    std::string path;
    registry_access access;

    static scripted_key *of(registry_key *key) { return reinterpret_cast<scripted_key *>(key); }
};

struct scripted_registry;
inline scripted_registry *the_registry;

struct scripted_registry {
    using values = std::vector<std::pair<std::string, std::string>>; // name and bytes
    std::map<std::pair<registry_hive, std::string>, values> keys;

    // The operation that fails with code 5, the `broken_at`-th time that it is called.
    std::string broken;
    int broken_at = 1;

    std::vector<std::string> queried; // names
    int open_keys = 0;
    const char *settings_file = nullptr;
    const char *variables_file = nullptr;

    scripted_registry() {
        the_registry = this;
        registry_host = &ops;
    }

    static const registry_ops ops;

    values *find(registry_hive hive, const std::string &path) {
        auto found = keys.find({hive, path});
        return found != keys.end() ? &found->second : nullptr;
    }
    std::string *find(const scripted_key *key, const std::string &name) {
        for (auto &[each, bytes] : keys[{key->hive, key->path}])
            if (each == name) return &bytes;
        return nullptr;
    }

    const values &values_of(registry_key *key) {
        return keys[{scripted_key::of(key)->hive, scripted_key::of(key)->path}];
    }

    // The names of the keys right below one.
    std::vector<std::string> keys_below(registry_key *key) const {
        const scripted_key *above = scripted_key::of(key);
        std::vector<std::string> names;
        for (const auto &[place, unused] : keys)
            if (place.first == above->hive && place.second.starts_with(above->path + "\\") &&
                place.second.find('\\', above->path.size() + 1) == std::string::npos)
                names.push_back(place.second.substr(above->path.size() + 1));
        return names;
    }

    // A text with its terminator, as programs store it.
    void set(registry_hive hive, const std::string &path, const std::string &name, const std::string &text) {
        scripted_key key = {hive, path, REGISTRY_WRITE};
        std::string bytes = text + '\0';
        if (std::string *found = find(&key, name))
            *found = bytes;
        else
            keys[{hive, path}].push_back({name, bytes});
    }

    bool fails(const char *operation) { return broken == operation && --broken_at == 0; }

    registry_key *open(registry_hive hive, const std::string &path, registry_access access) {
        open_keys++;
        return reinterpret_cast<registry_key *>(new scripted_key{hive, path, access});
    }
};

inline constexpr uint32_t REGISTRY_NOT_FOUND = 2;
inline constexpr uint32_t REGISTRY_DENIED = 5;
inline constexpr uint32_t REGISTRY_MORE_DATA = 234;
inline constexpr uint32_t REGISTRY_NO_MORE_ITEMS = 259;

inline const registry_ops scripted_registry::ops = {
    .RegOpenKeyExA = [](registry_hive hive, const char *path, registry_access access,
                        registry_key **out) -> uint32_t {
        if (the_registry->fails("open")) return REGISTRY_DENIED;
        if (the_registry->find(hive, path) == nullptr) return REGISTRY_NOT_FOUND;
        *out = the_registry->open(hive, path, access);
        return 0;
    },
    .RegCreateKeyExA = [](registry_key *opened, const char *path, registry_key **out) -> uint32_t {
        const scripted_key *parent = scripted_key::of(opened);
        if (the_registry->fails("create")) return REGISTRY_DENIED;
        std::string whole = parent->path + "\\" + path;
        bool there = the_registry->find(parent->hive, whole) != nullptr;
        if (!there && parent->access != REGISTRY_WRITE) return REGISTRY_DENIED;
        the_registry->keys[{parent->hive, whole}]; // makes it where it is missing
        *out = the_registry->open(parent->hive, whole, parent->access);
        return 0;
    },
    .RegQueryValueExA = [](registry_key *key, const char *name, char *buffer, uint32_t *size) -> uint32_t {
        the_registry->queried.push_back(name);
        if (the_registry->fails("query")) return REGISTRY_DENIED;
        const std::string *found = the_registry->find(scripted_key::of(key), name);
        if (found == nullptr) return REGISTRY_NOT_FOUND;
        if (found->size() > *size) return REGISTRY_MORE_DATA;
        memcpy(buffer, found->data(), found->size());
        *size = static_cast<uint32_t>(found->size());
        return 0;
    },
    .RegSetValueExA = [](registry_key *key, const char *name, const char *value, uint32_t size) -> uint32_t {
        const scripted_key *into = scripted_key::of(key);
        if (the_registry->fails("set") || into->access != REGISTRY_WRITE) return REGISTRY_DENIED;
        std::string bytes(value, size);
        if (std::string *found = the_registry->find(into, name))
            *found = bytes;
        else
            the_registry->keys[{into->hive, into->path}].push_back({name, bytes});
        return 0;
    },
    .RegQueryInfoKeyA = [](registry_key *key, uint32_t *out_count) -> uint32_t {
        if (the_registry->fails("info")) return REGISTRY_DENIED;
        *out_count = static_cast<uint32_t>(the_registry->values_of(key).size());
        return 0;
    },
    .RegEnumValueA = [](registry_key *key, uint32_t index, char *name, uint32_t size) -> uint32_t {
        if (the_registry->fails("enum")) return REGISTRY_DENIED;
        const auto &values = the_registry->values_of(key);
        if (index >= values.size() || values[index].first.size() >= size) return REGISTRY_NOT_FOUND;
        strcpy(name, values[index].first.c_str());
        return 0;
    },
    .RegEnumKeyExA = [](registry_key *key, uint32_t index, char *name, uint32_t size) -> uint32_t {
        if (the_registry->fails("enum_key")) return REGISTRY_DENIED;
        std::vector<std::string> names = the_registry->keys_below(key);
        if (index >= names.size()) return REGISTRY_NO_MORE_ITEMS;
        if (names[index].size() >= size) return REGISTRY_MORE_DATA;
        strcpy(name, names[index].c_str());
        return 0;
    },
    .RegCloseKey =
        [](registry_key *key) {
            the_registry->open_keys--;
            delete scripted_key::of(key);
        },
    .use_settings_file = [](const char *path) { the_registry->settings_file = path; },
    .use_variables_file = [](const char *path) { the_registry->variables_file = path; },
};
