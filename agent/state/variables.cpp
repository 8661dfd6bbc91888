#include "state/variables.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/heap.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <cstring>
#include <mutex>

namespace {

constexpr const char *STORE_PATH = "SOFTWARE\\Tarnix";
constexpr const char *STORE_SUBKEY = "TNAgent\\Variables";
constexpr int64_t FLUSH_DELAY = 30; // seconds
constexpr int64_t NEW_KEY = 1;      // a point of time whose delay has long passed

std::mutex lock;
variable *variables;
int64_t dirty_since; // 0 when memory and storage agree

struct open_store {
    registry_key *parent;
    registry_key *key;
    ~open_store() {
        if (key != nullptr) registry_host->RegCloseKey(key);
        if (parent != nullptr) registry_host->RegCloseKey(parent);
    }
};

using variable_guard = guard<variable, var_free>;

} // namespace

const char *var_set_file(const char *path) {
    if (registry_host->use_variables_file != nullptr) registry_host->use_variables_file(path);
    return nullptr;
}

static registry_hive store_hive() {
    return user_hive_flag != 0 ? USER_HIVE : MACHINE_HIVE;
}

static bool open_parent(registry_access access, open_store *store) {
    return registry_host->RegOpenKeyExA(store_hive(), STORE_PATH, access, &store->parent) == 0;
}

static bool open_subkey(open_store *store) {
    return registry_host->RegCreateKeyExA(store->parent, STORE_SUBKEY, &store->key) == 0;
}

static const char *load_value(registry_key *key, const char *name) {
    char data[REGISTRY_VALUE_LIMIT + 1] = {};
    uint32_t size = REGISTRY_VALUE_LIMIT;
    if (registry_host->RegQueryValueExA(key, name, data, &size) != 0) return "Cannot read variabel key";
    variable_guard entry(var_new());
    if (entry == nullptr) return "Memory allocation error while parsing variables file";
    entry->key = text_copy(name);
    if (entry->key == nullptr) return "Memory allocation error when duplicating key in variables parser";
    entry->value = text_copy(data);
    if (entry->value == nullptr) return "Memory allocation error when duplicating value in variables parser";
    entry->next = variables;
    variables = entry.release();
    return nullptr;
}

const char *var_read_all() {
    std::lock_guard held(lock);
    open_store store = {};
    if (!open_parent(REGISTRY_QUERY, &store)) return "Cannot open variables registrykey. returncode ";
    if (!open_subkey(&store)) return "Couldn't create the variable registrykey during read";
    uint32_t count = 0;
    if (registry_host->RegQueryInfoKeyA(store.key, &count) != 0)
        return "Cannot get registry info on variables key";
    // Backwards and to the head, so that the list ends up in the registry's order.
    for (int64_t index = count; index >= 0; index--) {
        char name[REGISTRY_VALUE_LIMIT] = {};
        if (registry_host->RegEnumValueA(store.key, static_cast<uint32_t>(index), name, sizeof name) != 0)
            continue;
        if (auto *failure = load_value(store.key, name)) return failure;
    }
    return nullptr;
}

static const char *write_values(registry_key *key) {
    for (const variable *entry = variables; entry != nullptr; entry = entry->next) {
        auto length = static_cast<uint32_t>(strlen(entry->value));
        agent_log(LOG_TRACE, "%s: %d", entry->key, static_cast<int>(length));
        uint32_t code = registry_host->RegSetValueExA(key, entry->key, entry->value, length + 1);
        // Where values reach storage together, that is a part of setting the last one.
        if (code == 0 && entry->next == nullptr && registry_host->RegFlushKey != nullptr)
            code = registry_host->RegFlushKey(key);
        if (code != 0) return "Couldn't create registryvalue in key variables";
    }
    return nullptr;
}

const char *var_flush(int force) {
    std::lock_guard held(lock);
    if (dirty_since == 0) return nullptr;
    if (force == 0 && dirty_since + FLUSH_DELAY > time_now()) return nullptr;
    open_store store = {};
    if (!open_parent(REGISTRY_WRITE, &store)) return "Cannot open variables path for write returncode ";
    if (!open_subkey(&store)) return "Couldn't create the variable registrykey during flush";
    if (auto *failure = write_values(store.key)) return failure;
    dirty_since = 0;
    return nullptr;
}

variable *var_new() {
    return heap_new<variable>();
}

void var_free(variable *entry) {
    if (entry == nullptr) return;
    heap_free(entry->key);
    heap_free(entry->value);
    heap_free(entry);
}

variable *var_make(const char *key, const char *value) {
    variable_guard entry(var_new());
    if (entry == nullptr) return nullptr;
    entry->key = text_copy(key);
    entry->value = text_copy(value);
    return entry->key != nullptr && entry->value != nullptr ? entry.release() : nullptr;
}

// The link that holds the entry of this key, or the one behind the last.
static variable **find_link(const char *key) {
    variable **link = &variables;
    while (*link != nullptr && strcmp((*link)->key, key) != 0)
        link = &(*link)->next;
    return link;
}

variable *var_get(const char *key) {
    std::lock_guard held(lock);
    return *find_link(key);
}

char *var_value(const char *key) {
    std::lock_guard held(lock);
    const variable *entry = *find_link(key);
    return entry != nullptr ? text_copy(entry->value) : nullptr;
}

const char *var_set(variable *entry) {
    if (entry == nullptr) return "Out of memory when cloning variable";
    std::lock_guard held(lock);
    variable **link = find_link(entry->key);
    if (variable *old = *link) {
        entry->next = old->next;
        *link = entry;
        var_free(old);
        if (dirty_since == 0) dirty_since = time_now();
        return nullptr;
    }
    entry->next = variables;
    variables = entry;
    if (dirty_since == 0) dirty_since = NEW_KEY;
    return nullptr;
}

void var_delete(const char *key) {
    std::lock_guard held(lock);
    variable **link = find_link(key);
    variable *found = *link;
    if (found == nullptr) return;
    *link = found->next;
    var_free(found);
}

void var_reset() {
    std::lock_guard held(lock);
    while (variable *first = variables) {
        variables = first->next;
        var_free(first);
    }
    dirty_since = 0;
}
