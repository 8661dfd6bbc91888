// What the memory checks ask of a host.
#pragma once

#include <cstdint>

// Sizes in bytes. The page file is all that can be promised to programs: physical memory and swap together.
struct memory_status {
    uint32_t length; // of the platform's record, set before the call
    uint32_t memory_load;
    uint64_t total_phys;
    uint64_t available_phys;
    uint64_t total_page_file;
    uint64_t available_page_file;
    uint64_t total_virtual;
    uint64_t available_virtual;
};

struct memory_ops {
    // Whether the module, and a function of this table in it, is there on this host.
    bool (*GetModuleHandleA)(const char *module);
    bool (*GetProcAddress)(const char *function);
    // Optional: absent where the host lacks it.
    bool (*GlobalMemoryStatusEx)(memory_status *out);
    // Leaves the length of the record that it filled.
    void (*GlobalMemoryStatus)(memory_status *out);
};

extern const memory_ops memory_ops_host;
extern const memory_ops *memory_host;
