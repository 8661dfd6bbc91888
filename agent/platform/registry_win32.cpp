#include "platform/registry.h"

#include "platform/heap.h"

#include <windows.h>

struct registry_key {
    HKEY handle;
    registry_access access;
};

using key_guard = guard<registry_key, heap_free>;

static HKEY root_of(registry_hive hive) {
    return hive == USER_HIVE ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

static uint32_t open_key(registry_hive hive, const char *path, registry_access access, registry_key **out) {
    key_guard key(heap_new<registry_key>());
    if (key == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    key->access = access;
    static constexpr REGSAM wanted[] = {KEY_QUERY_VALUE, KEY_READ, KEY_READ | KEY_WRITE};
    auto status = static_cast<uint32_t>(RegOpenKeyExA(root_of(hive), path, 0, wanted[access], &key->handle));
    if (status == ERROR_SUCCESS) *out = key.release();
    return status;
}

// The host asks only whether the user may make a key, not whether the parent was opened for that. So a parent
// that is open for querying must not be asked.
static uint32_t create_key(registry_key *parent, const char *path, registry_key **out) {
    key_guard key(heap_new<registry_key>());
    if (key == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    key->access = parent->access;
    LSTATUS status = ERROR_SUCCESS;
    if (parent->access != REGISTRY_WRITE)
        status = RegOpenKeyExA(parent->handle, path, 0, KEY_ALL_ACCESS, &key->handle);
    else
        status = RegCreateKeyExA(parent->handle, path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                                 nullptr, &key->handle, nullptr);
    if (status == ERROR_SUCCESS) *out = key.release();
    return static_cast<uint32_t>(status);
}

static uint32_t query_value(registry_key *key, const char *name, char *buffer, uint32_t *size) {
    DWORD length = *size;
    LSTATUS status =
        RegQueryValueExA(key->handle, name, nullptr, nullptr, reinterpret_cast<BYTE *>(buffer), &length);
    *size = length;
    return static_cast<uint32_t>(status);
}

static uint32_t set_value(registry_key *key, const char *name, const char *value, uint32_t size) {
    return static_cast<uint32_t>(
        RegSetValueExA(key->handle, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(value), size));
}

static uint32_t query_info(registry_key *key, uint32_t *out_count) {
    DWORD count = 0;
    LSTATUS status = RegQueryInfoKeyA(key->handle, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      &count, nullptr, nullptr, nullptr, nullptr);
    *out_count = count;
    return static_cast<uint32_t>(status);
}

static uint32_t enumerate_value(registry_key *key, uint32_t index, char *name, uint32_t size) {
    DWORD length = size;
    return static_cast<uint32_t>(
        RegEnumValueA(key->handle, index, name, &length, nullptr, nullptr, nullptr, nullptr));
}

static uint32_t enumerate_key(registry_key *key, uint32_t index, char *name, uint32_t size) {
    DWORD length = size;
    return static_cast<uint32_t>(
        RegEnumKeyExA(key->handle, index, name, &length, nullptr, nullptr, nullptr, nullptr));
}

static void close_key(registry_key *key) {
    RegCloseKey(key->handle);
    heap_free(key);
}

const registry_ops registry_ops_host = {
    .RegOpenKeyExA = open_key,
    .RegCreateKeyExA = create_key,
    .RegQueryValueExA = query_value,
    .RegSetValueExA = set_value,
    .RegQueryInfoKeyA = query_info,
    .RegEnumValueA = enumerate_value,
    .RegEnumKeyExA = enumerate_key,
    .RegCloseKey = close_key,
};
