// Drives and memory of a recorded machine, in place of the host's.
#pragma once

#include "platform/heap.h"
#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/machine.h"
#include "probes/os/meminfo.h"
#include "probes/os/memory_ops.h"
#include "probes/os/mount_table.h"

#include <cerrno>
#include <cstring>

struct recorded_search {
    std::string root;
    uint32_t position;
};

// The recorded container's single files lie in /etc; all else is a folder.
inline mount_table_guard recorded_mounts() {
    std::string text = the_machine->text("/proc/self/mountinfo");
    return mount_table_guard(
        parse_mounts(text.c_str(), [](const char *path) { return !std::string(path).starts_with("/etc/"); }));
}

inline const char *recorded_root(uint32_t index) {
    static std::string path;
    auto table = recorded_mounts();
    const char *found = mount_root(table.get(), index);
    if (found == nullptr) return nullptr;
    path = found;
    return path.c_str();
}

inline uint32_t recorded_type(const char *path) {
    return mount_drive_type(recorded_mounts().get(), path);
}

inline bool recorded_space(const char *path, uint64_t *available, uint64_t *total, uint64_t *total_free) {
    *available = 1000;
    *total_free = 2000;
    *total = 3000;
    return mount_is_drive(recorded_mounts().get(), path);
}

inline bool recorded_device(const char *path, uint32_t *out_major, uint32_t *out_minor) {
    return mount_device(recorded_mounts().get(), path, out_major, out_minor);
}

inline bool recorded_presence(const char *) {
    return true;
}

inline bool recorded_next(mount_search *search, char *path, uint32_t size) {
    auto *state = reinterpret_cast<recorded_search *>(search);
    return next_mount_below(recorded_mounts().get(), state->root.c_str(), &state->position, path, size);
}

inline void recorded_close(mount_search *search) {
    delete reinterpret_cast<recorded_search *>(search);
}

inline mount_search *recorded_first(const char *root, char *path, uint32_t size) {
    auto *search = reinterpret_cast<mount_search *>(new recorded_search{root, 0});
    if (recorded_next(search, path, size)) return search;
    recorded_close(search);
    return nullptr;
}

inline const drives_ops recorded_drives_ops = {
    .drive_root = recorded_root,
    .GetDriveTypeA = recorded_type,
    .GetDiskFreeSpaceExA = recorded_space,
    .drive_device = recorded_device,
    .GetModuleHandleA = recorded_presence,
    .GetProcAddress = recorded_presence,
    .FindFirstVolumeMountPointA = recorded_first,
    .FindNextVolumeMountPointA = recorded_next,
    .FindVolumeMountPointClose = recorded_close,
};

inline bool recorded_memory(memory_status *out) {
    meminfo memory;
    if (!parse_meminfo(the_machine->text("/proc/meminfo").c_str(), &memory)) return false;
    fill_memory_status(memory, out);
    return true;
}

inline const memory_ops recorded_memory_ops = {
    .GetModuleHandleA = recorded_presence,
    .GetProcAddress = recorded_presence,
    .GlobalMemoryStatusEx = recorded_memory,
};
