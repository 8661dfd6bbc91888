#include "platform/heap.h"
#include "platform/host_files_linux.h"
#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/mount_table.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

struct mount_search {
    char root[128];
    uint32_t position;
};

namespace {

// Printing the mount table costs the kernel some microseconds a mount, a poll next to nothing; it tells when
// the table has changed. So the file stays open and what was read from it counts until then.
int mounts_file = -1;
mount_table *mounts;

} // namespace

static bool is_folder(const char *path) {
    struct stat found;
    return stat(path, &found) == 0 && S_ISDIR(found.st_mode);
}

static bool mounts_changed() {
    if (mounts_file < 0) {
        mounts_file = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
        return mounts_file >= 0;
    }
    pollfd file = {.fd = mounts_file, .events = POLLPRI, .revents = 0};
    return poll(&file, 1, 0) > 0;
}

static text_guard read_mounts() {
    constexpr size_t LIMIT = size_t{16} << 20;
    for (size_t size = size_t{16} << 10; size <= LIMIT; size *= 4) {
        text_guard text(static_cast<char *>(heap_alloc(size + 1)));
        if (text == nullptr || lseek(mounts_file, 0, SEEK_SET) != 0) return {};
        int64_t length = read_to_end(mounts_file, text.get(), size);
        if (length < 0) return {};
        if (static_cast<size_t>(length) < size) return text;
    }
    return {};
}

// The table as it is now, or absent.
static const mount_table *current_mounts() {
    if (mounts != nullptr && !mounts_changed()) return mounts;
    if (mounts_file < 0) mounts_changed();
    free_mount_table(mounts);
    text_guard text = mounts_file >= 0 ? read_mounts() : text_guard();
    mounts = text != nullptr ? parse_mounts(text.get(), is_folder) : nullptr;
    return mounts;
}

static const char *drive_root(uint32_t index) {
    const mount_table *table = current_mounts();
    return table != nullptr ? mount_root(table, index) : nullptr;
}

static uint32_t get_drive_type(const char *path) {
    const mount_table *table = current_mounts();
    return table != nullptr ? mount_drive_type(table, path) : static_cast<uint32_t>(DRIVE_UNKNOWN);
}

// Whether the path is worth a call. One on a file system whose server is gone would not return, and an empty
// folder in which nothing is mounted any more would give the space of the drive that it lies on.
static bool is_drive(const char *path) {
    const mount_table *table = current_mounts();
    if (table == nullptr || mount_is_drive(table, path)) return true;
    if (mount_is_remote(table, path))
        errno = EREMOTE;
    else if (access(path, F_OK) == 0)
        errno = ENODEV;
    return false;
}

static bool get_disk_free_space(const char *path, uint64_t *available, uint64_t *total,
                                uint64_t *total_free) {
    if (!is_drive(path)) return false;
    struct statvfs found;
    if (statvfs(path, &found) != 0) return false;
    *available = found.f_bavail * found.f_frsize;
    *total = found.f_blocks * found.f_frsize;
    *total_free = found.f_bfree * found.f_frsize;
    return true;
}

static bool drive_device(const char *path, uint32_t *out_major, uint32_t *out_minor) {
    const mount_table *table = current_mounts();
    return table != nullptr && mount_device(table, path, out_major, out_minor);
}

static bool get_module_handle(const char *) {
    return true;
}

static bool get_proc_address(const char *) {
    return true;
}

static bool find_next(mount_search *search, char *path, uint32_t size) {
    const mount_table *table = current_mounts();
    return table != nullptr && next_mount_below(table, search->root, &search->position, path, size);
}

static void find_close(mount_search *search) {
    heap_free(search);
}

static mount_search *find_first(const char *root, char *path, uint32_t size) {
    auto *search = heap_new<mount_search>();
    if (search == nullptr) return nullptr;
    copy_bounded(search->root, root, sizeof search->root);
    if (find_next(search, path, size)) return search;
    find_close(search);
    return nullptr;
}

const drives_ops drives_ops_host = {
    .drive_root = drive_root,
    .GetDriveTypeA = get_drive_type,
    .GetDiskFreeSpaceExA = get_disk_free_space,
    .drive_device = drive_device,
    .GetModuleHandleA = get_module_handle,
    .GetProcAddress = get_proc_address,
    .FindFirstVolumeMountPointA = find_first,
    .FindNextVolumeMountPointA = find_next,
    .FindVolumeMountPointClose = find_close,
};
