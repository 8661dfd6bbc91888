// Which mounts of a host are drives, out of its mount table (/proc/self/mountinfo).
//
// A drive is fixed when its file system lies on a disk: mounts of a block device and of the file systems that
// manage several disks themselves, but not read-only images (a CD, a packed program), and the root of a
// container. File systems in memory and of the kernel are no drives but local: what is mounted below one is
// found as if it were a folder. What an automount holds while it is used is none either, since it comes and
// goes. All else is taken for remote, known or not; it may hang who touches it, so
// nothing below it is ever looked at.
//
// A device that is mounted in several places is one drive: at the root, else where the whole of it is
// mounted, else at the shortest path. Single files that are mounted over others (a container's /etc/hosts)
// are no drives. What a later mount covers cannot be reached, and is left out.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

struct mount_point {
    char *path;
    uint32_t drive_type;
    uint32_t device_major, device_minor; // the former 0 for what lies on no block device of its own
    bool chosen;                         // of all the places of a drive
};

// The places of fixed drives and the remote mounts, in the order of the mount table.
struct mount_table {
    mount_point *points;
    uint32_t count;
};

// Absent when memory is out. Lines that are none are passed over. `is_folder` is asked about the mount points
// of parts of a fixed drive only.
mount_table *parse_mounts(const char *text, bool (*is_folder)(const char *path));
void free_mount_table(mount_table *table); // takes absent

using mount_table_guard = guard<mount_table, free_mount_table>;

// The drive type of a file system by its name.
uint32_t file_system_drive_type(const char *type, uint32_t device_major, bool is_root);

// What GetDriveTypeA tells: DRIVE_NO_ROOT_DIR where no drive has its place.
uint32_t mount_drive_type(const mount_table *table, const char *path);

// Whether a fixed drive is mounted at the path, which need not be the place that was chosen for it.
bool mount_is_drive(const mount_table *table, const char *path);

// The block device of the drive that is mounted at the path; false where it has none of its own.
bool mount_device(const mount_table *table, const char *path, uint32_t *out_major, uint32_t *out_minor);

// Whether reaching the path leads over a file system of another machine. The root's does not count, since
// nothing would run without it.
bool mount_is_remote(const mount_table *table, const char *path);

// The paths from which drives are looked for: "/" and, where that is no fixed drive, each drive that lies on
// no other. Absent behind the last one.
const char *mount_root(const mount_table *table, uint32_t index);

// Writes what stands behind `root` in the path of the next drive that lies on this one, with no other in
// between, and moves `*position`, which starts at 0, behind it. Paths that do not fit are passed over; false
// behind the last one.
bool next_mount_below(const mount_table *table, const char *root, uint32_t *position, char *path,
                      size_t size);
