// The memory of a host, as /proc/meminfo tells it.
#pragma once

#include <cstdint>

// In bytes. `available` never exceeds `total`, nor `swap_free` `swap_total`.
struct meminfo {
    uint64_t total;
    uint64_t available; // for programs without swapping
    uint64_t swap_total;
    uint64_t swap_free;
    uint64_t committed; // promised to programs
};

// False where the text does not tell the total and something to work out the available memory from.
bool parse_meminfo(const char *text, meminfo *out);
