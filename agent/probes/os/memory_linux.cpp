#include "platform/host_files_linux.h"
#include "probes/os/meminfo.h"
#include "probes/os/memory_ops.h"

static bool get_module_handle(const char *) {
    return true;
}

static bool get_proc_address(const char *) {
    return true;
}

static bool global_memory_status_ex(memory_status *out) {
    char text[8192];
    meminfo memory;
    if (!read_host_text("/proc/meminfo", text, sizeof text) || !parse_meminfo(text, &memory)) return false;
    fill_memory_status(memory, out);
    return true;
}

const memory_ops memory_ops_host = {
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .GlobalMemoryStatusEx = global_memory_status_ex,
};
