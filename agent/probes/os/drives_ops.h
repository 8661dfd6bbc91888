// What the drive checks ask of a host: its volumes and the mount points on them.
#pragma once

#include <cstddef>
#include <cstdint>

// What GetDriveTypeA tells.
enum : uint32_t {
    DRIVE_UNKNOWN = 0,
    DRIVE_NO_ROOT_DIR = 1,
    DRIVE_REMOVABLE = 2,
    DRIVE_FIXED = 3,
    DRIVE_REMOTE = 4,
    DRIVE_CDROM = 5,
    DRIVE_RAMDISK = 6,
};

// An enumeration of mount points under way.
struct mount_search;

// Each call that fails leaves its reason in last_error().
struct drives_ops {
    // The roots to look at, in their order; absent behind the last one. A host with drive letters gives those
    // of drive_letter_root.
    const char *(*drive_root)(uint32_t index);
    uint32_t (*GetDriveTypeA)(const char *path);
    // In bytes; `total_free` counts regardless of quotas. Fails, and does not wait, for a path that another
    // machine serves.
    bool (*GetDiskFreeSpaceExA)(const char *path, uint64_t *available, uint64_t *total, uint64_t *total_free);
    // The number of the block device that a drive lies on, in two parts; false where it has none of its own.
    // Nobody asks a host that counts for its drives itself.
    bool (*drive_device)(const char *path, uint32_t *out_major, uint32_t *out_minor);

    // Whether the module, and a function of this table in it, is there on this host.
    bool (*GetModuleHandleA)(const char *module);
    bool (*GetProcAddress)(const char *function);
    // The mount points on the volume with this root, as what stands behind the root in their paths. One that
    // does not fit into `size` bytes is passed over.
    mount_search *(*FindFirstVolumeMountPointA)(const char *root, char *path, uint32_t size);
    bool (*FindNextVolumeMountPointA)(mount_search *search, char *path, uint32_t size);
    void (*FindVolumeMountPointClose)(mount_search *search);
};

extern const drives_ops drives_ops_host;
extern const drives_ops *drives_host;

// "C:\" for 0 to "Z:\" for 23, absent for more: A and B are diskettes and never looked at.
const char *drive_letter_root(uint32_t index);
