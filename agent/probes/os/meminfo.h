// The memory of a host, as /proc/meminfo tells it.
#pragma once

#include "probes/os/memory_ops.h"

#include <cstdint>

// In bytes. `available` never exceeds `total`, nor `swap_free` `swap_total`.
struct meminfo {
    uint64_t total;
    uint64_t available; // for programs without swapping
    uint64_t swap_total;
    uint64_t swap_free;
    uint64_t committed; // promised to programs
    uint64_t commit_limit;
    uint64_t cached;        // pages of files
    uint64_t unreclaimable; // the kernel's own
    uint64_t reclaimable;   // the same, as far as it could give it back
    uint64_t unused;        // by anybody
    uint64_t dirty;         // pages of files that wait to be written
};

// False where the text does not tell the total and something to work out the available memory from.
bool parse_meminfo(const char *text, meminfo *out);

// The platform's figures for such a memory: the page file is memory and swap together, so that what it has
// beyond physical memory is the swap. The length field stays as it is.
void fill_memory_status(const meminfo &memory, memory_status *out);
