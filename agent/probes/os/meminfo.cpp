#include "probes/os/meminfo.h"

#include "probes/os/host_text.h"

#include <algorithm>

// The lines are in kB; the row that is not there counts as nothing.
static uint64_t read_bytes(const char *text, const char *key) {
    uint64_t kilobytes = 0;
    read_keyed(text, key, &kilobytes);
    return std::min(kilobytes, UINT64_MAX / 1024) * 1024;
}

// Kernels before 3.14 give no estimate of their own: what is free, and what their caches would give back.
static bool estimate_available(const char *text, uint64_t *out) {
    uint64_t free_kilobytes = 0;
    if (!read_keyed(text, "MemFree:", &free_kilobytes)) return false;
    uint64_t cached = read_bytes(text, "Cached:") + read_bytes(text, "SReclaimable:");
    uint64_t kept = std::min(cached, read_bytes(text, "Shmem:"));
    *out = read_bytes(text, "MemFree:") + read_bytes(text, "Buffers:") + cached - kept;
    return true;
}

bool parse_meminfo(const char *text, meminfo *out) {
    *out = {};
    out->total = read_bytes(text, "MemTotal:");
    uint64_t estimate = 0;
    if (read_keyed(text, "MemAvailable:", &estimate))
        out->available = read_bytes(text, "MemAvailable:");
    else if (!estimate_available(text, &out->available))
        return false;
    out->available = std::min(out->available, out->total);
    out->swap_total = read_bytes(text, "SwapTotal:");
    out->swap_free = std::min(read_bytes(text, "SwapFree:"), out->swap_total);
    out->committed = read_bytes(text, "Committed_AS:");
    out->commit_limit = read_bytes(text, "CommitLimit:");
    out->cached = read_bytes(text, "Cached:");
    out->unreclaimable = read_bytes(text, "SUnreclaim:");
    out->reclaimable = read_bytes(text, "SReclaimable:");
    out->unused = read_bytes(text, "MemFree:");
    out->dirty = read_bytes(text, "Dirty:");
    return out->total > 0;
}

// The address space, which nobody asks for, is left at 0.
void fill_memory_status(const meminfo &memory, memory_status *out) {
    *out = {
        .length = out->length,
        .memory_load = static_cast<uint32_t>((memory.total - memory.available) / (memory.total / 100 + 1)),
        .total_phys = memory.total,
        .available_phys = memory.available,
        .total_page_file = memory.total + memory.swap_total,
        .available_page_file = memory.available + memory.swap_free,
    };
}
