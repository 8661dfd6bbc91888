// The registry: settings and variables, one text a value, in a user's hive and the machine's.
//
// A host without a registry answers from files, in the same words (settings/registry_file).
#pragma once

#include <cstdint>

enum registry_hive { USER_HIVE, MACHINE_HIVE };
enum registry_access { REGISTRY_QUERY, REGISTRY_READ, REGISTRY_WRITE }; // READ lists the keys below, too

inline constexpr uint32_t REGISTRY_VALUE_LIMIT = 1024; // bytes of a value that is read, its end included

struct registry_key;

// Each call but RegCloseKey gives 0 or a system error code.
struct registry_ops {
    uint32_t (*RegOpenKeyExA)(registry_hive hive, const char *path, registry_access access,
                              registry_key **out);
    // Opens the key below `parent`, or makes it where `parent` is open for writing.
    uint32_t (*RegCreateKeyExA)(registry_key *parent, const char *path, registry_key **out);
    // `*size` holds the buffer's size before and the value's length behind the call, a terminator included.
    uint32_t (*RegQueryValueExA)(registry_key *key, const char *name, char *buffer, uint32_t *size);
    // `size` includes the terminator.
    uint32_t (*RegSetValueExA)(registry_key *key, const char *name, const char *value, uint32_t size);
    uint32_t (*RegQueryInfoKeyA)(registry_key *key, uint32_t *out_count);
    uint32_t (*RegEnumValueA)(registry_key *key, uint32_t index, char *name, uint32_t size);
    // The name of a key below. Optional: absent where no key has any.
    uint32_t (*RegEnumKeyExA)(registry_key *key, uint32_t index, char *name, uint32_t size);
    // Brings what was set to storage. Optional: absent where each value gets there by itself.
    uint32_t (*RegFlushKey)(registry_key *key);
    void (*RegCloseKey)(registry_key *key);

    // Where settings and variables live in files, these name them. Optional: absent where they live
    // elsewhere.
    void (*use_settings_file)(const char *path);
    void (*use_variables_file)(const char *path);
};

extern const registry_ops registry_ops_host;
extern const registry_ops *registry_host;
