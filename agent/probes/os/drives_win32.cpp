#include "platform/text.h"
#include "probes/os/drives_ops.h"

#include <cstring>
#include <windows.h>

namespace {

using find_first_function = HANDLE(WINAPI *)(LPCSTR, LPSTR, DWORD);
using find_next_function = BOOL(WINAPI *)(HANDLE, LPSTR, DWORD);
using find_close_function = BOOL(WINAPI *)(HANDLE);

// Looked up at run time, since old hosts lack them.
HMODULE module;
find_first_function first_function;
find_next_function next_function;
find_close_function close_function;

// Longer than any mount point's path, so that the enumeration never stops at one that the caller cannot take.
constexpr DWORD LONGEST_PATH = 32768;

} // namespace

static uint32_t get_drive_type(const char *path) {
    return GetDriveTypeA(path);
}

static bool get_disk_free_space(const char *path, uint64_t *available, uint64_t *total,
                                uint64_t *total_free) {
    ULARGE_INTEGER to_user = {};
    ULARGE_INTEGER size = {};
    ULARGE_INTEGER free = {};
    if (!GetDiskFreeSpaceExA(path, &to_user, &size, &free)) return false;
    *available = to_user.QuadPart;
    *total = size.QuadPart;
    *total_free = free.QuadPart;
    return true;
}

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
    if (text_equal(function, "FindFirstVolumeMountPointA")) return look_up(function, &first_function);
    if (text_equal(function, "FindNextVolumeMountPointA")) return look_up(function, &next_function);
    if (text_equal(function, "FindVolumeMountPointClose")) return look_up(function, &close_function);
    return false;
}

static HANDLE handle_of(mount_search *search) {
    return reinterpret_cast<HANDLE>(search);
}

static bool find_next(mount_search *search, char *path, uint32_t size) {
    static char found[LONGEST_PATH];
    while (next_function(handle_of(search), found, sizeof found)) {
        if (strlen(found) >= size) continue;
        copy_bounded(path, found, size);
        return true;
    }
    return false;
}

static void find_close(mount_search *search) {
    close_function(handle_of(search));
}

static mount_search *find_first(const char *root, char *path, uint32_t size) {
    static char found[LONGEST_PATH];
    HANDLE search = first_function(root, found, sizeof found);
    if (search == INVALID_HANDLE_VALUE) return nullptr;
    auto *started = reinterpret_cast<mount_search *>(search);
    if (strlen(found) < size) {
        copy_bounded(path, found, size);
        return started;
    }
    if (find_next(started, path, size)) return started;
    find_close(started);
    return nullptr;
}

const drives_ops drives_ops_host = {
    .drive_root = drive_letter_root,
    .GetDriveTypeA = get_drive_type,
    .GetDiskFreeSpaceExA = get_disk_free_space,
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .FindFirstVolumeMountPointA = find_first,
    .FindNextVolumeMountPointA = find_next,
    .FindVolumeMountPointClose = find_close,
};
