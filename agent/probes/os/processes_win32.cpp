#include "platform/text.h"
#include "probes/os/process_chain.h"
#include "probes/os/processes_ops.h"

#include <windows.h>

#define PSAPI_VERSION 1 // functions of psapi.dll, under their own names
#include <psapi.h>

namespace {

using query_function = LONG(WINAPI *)(ULONG, void *, ULONG, ULONG *);
using error_function = ULONG(WINAPI *)(LONG);

// Looked up at run time, since no import library promises them.
HMODULE module;
query_function query;
error_function error_of_status;

} // namespace

static bool get_module_handle(const char *name) {
    module = GetModuleHandleA(name);
    return module != nullptr;
}

template <class Function>
static bool look_up(const char *name, Function *out) {
    *out = reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(module, name)));
    return *out != nullptr;
}

static bool get_proc_address(const char *function) {
    if (!text_equal(function, "ZwQuerySystemInformation") || !look_up(function, &query)) return false;
    look_up("RtlNtStatusToDosError", &error_of_status);
    return true;
}

// The call gives its reason as a status alone.
static int32_t query_system_information(uint32_t information_class, uint8_t *buffer, uint32_t size) {
    LONG status = query(information_class, buffer, size, nullptr);
    if (status < 0 && error_of_status != nullptr) SetLastError(error_of_status(status));
    return status;
}

static bool next_process(process_walk *walk, char *name, uint32_t size) {
    char16_t wide[IMAGE_NAME_SIZE];
    if (!next_in_chain(walk, wide)) return false;
    name[0] = '\0';
    WideCharToMultiByte(CP_ACP, 0, reinterpret_cast<wchar_t *>(wide), -1, name, static_cast<int>(size),
                        nullptr, nullptr);
    name[size - 1] = '\0'; // a name that does not fit is cut
    return true;
}

static bool enum_processes(uint32_t *ids, uint32_t size, uint32_t *out_returned) {
    static_assert(sizeof(DWORD) == sizeof *ids);
    DWORD returned = 0;
    if (!EnumProcesses(reinterpret_cast<DWORD *>(ids), size, &returned)) return false;
    *out_returned = returned;
    return true;
}

static HANDLE handle_of(process *handle) {
    return reinterpret_cast<HANDLE>(handle);
}

static process *open_process(uint32_t rights, uint32_t id) {
    return reinterpret_cast<process *>(OpenProcess(rights, FALSE, id));
}

static bool enum_modules(process *handle, process_module **out_first, uint32_t size, uint32_t *out_needed) {
    static_assert(sizeof(HMODULE) == sizeof *out_first);
    DWORD needed = 0;
    bool success =
        EnumProcessModules(handle_of(handle), reinterpret_cast<HMODULE *>(out_first), size, &needed);
    *out_needed = needed;
    return success;
}

static bool module_name(process *handle, process_module *program, char *name, uint32_t size) {
    return GetModuleBaseNameA(handle_of(handle), reinterpret_cast<HMODULE>(program), name, size) != 0;
}

static void close_process(process *handle) {
    CloseHandle(handle_of(handle));
}

const processes_ops processes_ops_host = {
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .ZwQuerySystemInformation = query_system_information,
    .next_process = next_process,
    .EnumProcesses = enum_processes,
    .OpenProcess = open_process,
    .EnumProcessModules = enum_modules,
    .GetModuleBaseNameA = module_name,
    .CloseHandle = close_process,
};
