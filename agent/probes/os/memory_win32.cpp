#include "probes/os/memory_ops.h"

#include "platform/text.h"

#include <windows.h>

using status_function = BOOL(WINAPI *)(MEMORYSTATUSEX *);

static HMODULE module;
static status_function find_status; // looked up at run time, since old hosts lack it

static bool get_module_handle(const char *name) {
    module = GetModuleHandleA(name);
    return module != nullptr;
}

static bool get_proc_address(const char *function) {
    if (!text_equal(function, "GlobalMemoryStatusEx")) return false;
    find_status =
        reinterpret_cast<status_function>(reinterpret_cast<void *>(GetProcAddress(module, function)));
    return find_status != nullptr;
}

static bool global_memory_status_ex(memory_status *out) {
    MEMORYSTATUSEX status = {};
    status.dwLength = out->length;
    if (!find_status(&status)) return false;
    *out = {.length = status.dwLength,
            .memory_load = status.dwMemoryLoad,
            .total_phys = status.ullTotalPhys,
            .available_phys = status.ullAvailPhys,
            .total_page_file = status.ullTotalPageFile,
            .available_page_file = status.ullAvailPageFile,
            .total_virtual = status.ullTotalVirtual,
            .available_virtual = status.ullAvailVirtual};
    return true;
}

static void global_memory_status(memory_status *out) {
    MEMORYSTATUS status = {};
    status.dwLength = out->length;
    GlobalMemoryStatus(&status);
    *out = {.length = status.dwLength,
            .memory_load = status.dwMemoryLoad,
            .total_phys = status.dwTotalPhys,
            .available_phys = status.dwAvailPhys,
            .total_page_file = status.dwTotalPageFile,
            .available_page_file = status.dwAvailPageFile,
            .total_virtual = status.dwTotalVirtual,
            .available_virtual = status.dwAvailVirtual};
}

const memory_ops memory_ops_host = {
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .GlobalMemoryStatusEx = global_memory_status_ex,
    .GlobalMemoryStatus = global_memory_status,
};
