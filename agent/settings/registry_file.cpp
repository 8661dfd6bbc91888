#include "settings/registry_file.h"

#include "platform/errors.h"
#include "platform/files.h"
#include "platform/text.h"
#include "settings/places.h"
#include "settings/value_list.h"

#include <cstdio>
#include <cstring>

// System error codes.
static constexpr uint32_t CODE_OK = 0;
static constexpr uint32_t CODE_NOT_FOUND = 2;
static constexpr uint32_t CODE_NO_MEMORY = 12;
static constexpr uint32_t CODE_TOO_LONG = 75;

// An open key: the settings of a hive, the folder of the variables, or the variables.
struct registry_key {
    registry_access access;
    value_list list;
};

namespace {

constexpr size_t FILE_LIMIT = size_t{256} << 20;

const char *settings_file; // stands for both hives when it is named
const char *variables_file;
registry_hive variables_hive; // whose file it is where none is named
bool reported[2];             // what is wrong with a settings file is told once

} // namespace

static void close_key(registry_key *key) {
    free_values(&key->list);
    heap_free(key);
}

using key_guard = guard<registry_key, close_key>;

static uint32_t failure_code() {
    uint32_t code = last_error();
    return code != 0 ? code : CODE_NOT_FOUND;
}

static const char *settings_path(registry_hive hive) {
    if (settings_file != nullptr) return hive == MACHINE_HIVE ? settings_file : "";
    static places found;
    places_host->find(&found);
    return hive == USER_HIVE ? found.user_settings : found.machine_settings;
}

// Empty where there is no place for such a file.
static const char *variables_path() {
    return variables_file != nullptr ? variables_file : default_variable_file(variables_hive == USER_HIVE);
}

static uint32_t load_settings(registry_hive hive, registry_key *key) {
    const char *path = settings_path(hive);
    if (*path == '\0') return CODE_NOT_FOUND;
    size_t length = 0;
    text_guard text(file_read_text(path, FILE_LIMIT, &length));
    if (text == nullptr) return failure_code();
    bool report = !reported[hive];
    reported[hive] = true;
    return parse_settings(text.get(), length, path, report, &key->list) ? CODE_OK : CODE_NO_MEMORY;
}

// The folder of the variables file has to be there; opening it for writing makes it.
static uint32_t open_variables_folder(registry_access access) {
    const char *path = variables_path();
    if (*path == '\0') return CODE_NOT_FOUND;
    if (access == REGISTRY_WRITE) file_make_folders(path);
    const char *slash = strrchr(path, '/');
    if (slash == nullptr) return CODE_OK;
    text_guard folder(text_copy_part(path, slash == path ? 1 : static_cast<size_t>(slash - path)));
    if (folder == nullptr) return CODE_NO_MEMORY;
    file_facts facts;
    if (!files_host->facts_at(folder.get(), &facts)) return failure_code();
    return facts.regular ? CODE_NOT_FOUND : CODE_OK;
}

// Of the two keys that are opened by path, that of the settings lies below that of the product.
static uint32_t open_key(registry_hive hive, const char *path, registry_access access, registry_key **out) {
    key_guard key(heap_new<registry_key>());
    if (key == nullptr) return CODE_NO_MEMORY;
    key->access = access;
    uint32_t code;
    if (strstr(path, "TNAgent") != nullptr) {
        code = load_settings(hive, key.get());
    } else {
        variables_hive = hive;
        code = open_variables_folder(access);
    }
    if (code == CODE_OK) *out = key.release();
    return code;
}

// What is not there yet can be written. What cannot be looked at must not be written over.
static uint32_t load_variables(registry_key *key) {
    const char *path = variables_path();
    file_facts facts;
    if (!files_host->facts_at(path, &facts)) {
        uint32_t code = failure_code();
        return code == CODE_NOT_FOUND && key->access == REGISTRY_WRITE ? CODE_OK : code;
    }
    size_t length = 0;
    text_guard text(file_read_text(path, FILE_LIMIT, &length));
    if (text == nullptr) return failure_code();
    return parse_variables(text.get(), length, path, &key->list) ? CODE_OK : CODE_NO_MEMORY;
}

static uint32_t create_key(registry_key *parent, const char *, registry_key **out) {
    key_guard key(heap_new<registry_key>());
    if (key == nullptr) return CODE_NO_MEMORY;
    key->access = parent->access;
    uint32_t code = load_variables(key.get());
    if (code == CODE_OK) *out = key.release();
    return code;
}

static uint32_t query_value(registry_key *key, const char *name, char *buffer, uint32_t *size) {
    const file_value *found = find_value(&key->list, name);
    if (found == nullptr) return CODE_NOT_FOUND;
    size_t length = strlen(found->value) + 1;
    if (length > *size) return CODE_TOO_LONG;
    memcpy(buffer, found->value, length);
    *size = static_cast<uint32_t>(length);
    return CODE_OK;
}

static uint32_t set_key_value(registry_key *key, const char *name, const char *value, uint32_t) {
    return set_value(&key->list, name, value) ? CODE_OK : CODE_NO_MEMORY;
}

static uint32_t query_info(registry_key *key, uint32_t *out_count) {
    *out_count = key->list.count;
    return CODE_OK;
}

static uint32_t enum_value(registry_key *key, uint32_t index, char *name, uint32_t size) {
    if (index >= key->list.count || strlen(key->list.values[index].key) >= size) return CODE_NOT_FOUND;
    copy_bounded(name, key->list.values[index].key, size);
    return CODE_OK;
}

static bool write_file(const char *path, const char *text) {
    host_file file = files_host->open(path, FILE_REPLACE);
    if (file == NO_FILE) return false;
    bool written = file_write_all(file, text, strlen(text)) && files_host->sync(file);
    return files_host->close(file) && written;
}

static text_guard path_beside(const char *path) {
    size_t size = strlen(path) + sizeof ".new";
    text_guard beside(static_cast<char *>(heap_alloc(size)));
    if (beside != nullptr) snprintf(beside.get(), size, "%s.new", path);
    return beside;
}

static uint32_t flush_key(registry_key *key) {
    const char *path = variables_path();
    text_guard beside = path_beside(path);
    text_guard text(print_variables(&key->list));
    if (beside == nullptr || text == nullptr) return CODE_NO_MEMORY;
    if (write_file(beside.get(), text.get()) && files_host->MoveFileExA(beside.get(), path)) return CODE_OK;
    return failure_code();
}

static void use_settings_file(const char *path) {
    settings_file = path;
}

static void use_variables_file(const char *path) {
    variables_file = path;
}

void registry_file_reset() {
    settings_file = nullptr;
    variables_file = nullptr;
    variables_hive = USER_HIVE;
    reported[USER_HIVE] = reported[MACHINE_HIVE] = false;
}

const registry_ops registry_file_ops = {
    .RegOpenKeyExA = open_key,
    .RegCreateKeyExA = create_key,
    .RegQueryValueExA = query_value,
    .RegSetValueExA = set_key_value,
    .RegQueryInfoKeyA = query_info,
    .RegEnumValueA = enum_value,
    .RegFlushKey = flush_key,
    .RegCloseKey = close_key,
    .use_settings_file = use_settings_file,
    .use_variables_file = use_variables_file,
};
