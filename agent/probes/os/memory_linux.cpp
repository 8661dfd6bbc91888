#include "probes/os/host_files_linux.h"
#include "probes/os/meminfo.h"
#include "probes/os/memory_ops.h"

static bool get_module_handle(const char *) {
    return true;
}

static bool get_proc_address(const char *) {
    return true;
}

// The address space, which nobody asks for, is left at 0.
static bool global_memory_status_ex(memory_status *out) {
    char text[8192];
    meminfo memory;
    if (!read_host_text("/proc/meminfo", text, sizeof text) || !parse_meminfo(text, &memory)) return false;
    *out = {
        .length = out->length,
        .memory_load = static_cast<uint32_t>((memory.total - memory.available) / (memory.total / 100 + 1)),
        .total_phys = memory.total,
        .available_phys = memory.available,
        .total_page_file = memory.total + memory.swap_total,
        .available_page_file = memory.available + memory.swap_free,
    };
    return true;
}

const memory_ops memory_ops_host = {
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .GlobalMemoryStatusEx = global_memory_status_ex,
};
