#include "platform/files.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static host_file host_open(const char *path, file_mode mode) {
    static constexpr int flags[] = {O_RDONLY | O_NONBLOCK, O_WRONLY | O_CREAT | O_APPEND, O_WRONLY | O_CREAT,
                                    O_WRONLY | O_CREAT | O_TRUNC};
    mode_t permissions = mode == FILE_REPLACE ? 0600 : 0640;
    int file = open(path, flags[mode] | O_CLOEXEC, permissions);
    if (file < 0) return NO_FILE;
    // What was there before would keep its permissions.
    if (mode != FILE_REPLACE || fchmod(file, permissions) == 0) return file;
    int error = errno;
    close(file);
    errno = error;
    return NO_FILE;
}

static int64_t host_read(host_file file, void *buffer, size_t size) {
    ssize_t got;
    do
        got = read(static_cast<int>(file), buffer, size);
    while (got < 0 && errno == EINTR);
    return got;
}

static int64_t host_write(host_file file, const void *buffer, size_t size) {
    ssize_t written;
    do
        written = write(static_cast<int>(file), buffer, size);
    while (written < 0 && errno == EINTR);
    return written;
}

static bool host_seek(host_file file, int64_t offset, file_origin origin) {
    return lseek(static_cast<int>(file), offset, origin == FROM_START ? SEEK_SET : SEEK_END) >= 0;
}

static int64_t host_tell(host_file file) {
    return lseek(static_cast<int>(file), 0, SEEK_CUR);
}

static bool host_sync(host_file file) {
    return fsync(static_cast<int>(file)) == 0;
}

static bool host_close(host_file file) {
    return close(static_cast<int>(file)) == 0;
}

static file_facts facts_from(const struct stat &found) {
    return {.regular = S_ISREG(found.st_mode),
            .volume = found.st_dev,
            .number = found.st_ino,
            .size = found.st_size};
}

static bool facts_of(host_file file, file_facts *out) {
    struct stat found;
    if (fstat(static_cast<int>(file), &found) != 0) return false;
    *out = facts_from(found);
    return true;
}

static bool facts_at(const char *path, file_facts *out) {
    struct stat found;
    if (stat(path, &found) != 0) return false;
    *out = facts_from(found);
    return true;
}

static bool move_file(const char *from, const char *to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return true;
    // Some file systems do not know the flag; there the test has to come first.
    if (errno != EINVAL) return false;
    struct stat found;
    if (lstat(to, &found) == 0) {
        errno = EEXIST;
        return false;
    }
    return rename(from, to) == 0;
}

// A rename is on the disk when its folder is.
static bool sync_folder_of(const char *path) {
    char folder[PATH_MAX];
    const char *slash = strrchr(path, '/');
    if (slash == nullptr)
        snprintf(folder, sizeof folder, ".");
    else
        snprintf(folder, sizeof folder, "%.*s", static_cast<int>(slash == path ? 1 : slash - path), path);
    int opened = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0) return false;
    // Not every file system can sync a folder, and then there is nothing more to be done.
    bool synced = fsync(opened) == 0 || errno == EINVAL;
    close(opened);
    return synced;
}

static bool move_file_replacing(const char *from, const char *to) {
    return rename(from, to) == 0 && sync_folder_of(to);
}

static bool delete_file(const char *path) {
    return unlink(path) == 0;
}

static bool create_directory(const char *path) {
    return mkdir(path, 0700) == 0;
}

static bool make_executable(const char *path) {
    return chmod(path, 0755) == 0;
}

static int64_t creation_time(const char *path) {
    struct statx found;
    // Some sandboxes refuse this call alone; then the file is there and its age is not known.
    if (statx(AT_FDCWD, path, 0, STATX_BTIME, &found) != 0) return access(path, F_OK) == 0 ? -1 : 0;
    return (found.stx_mask & STATX_BTIME) != 0 ? found.stx_btime.tv_sec : -1;
}

// The rename of the rotation has left no file at the path, so that a new one is born with the present time.
static void restart_age(const char *) {}

const files_ops files_ops_host = {
    .stderr_handle = STDERR_FILENO,
    .open = host_open,
    .read = host_read,
    .write = host_write,
    .seek64 = host_seek,
    .tell64 = host_tell,
    .sync = host_sync,
    .close = host_close,
    .facts_of = facts_of,
    .facts_at = facts_at,
    .MoveFileA = move_file,
    .MoveFileExA = move_file_replacing,
    .DeleteFileA = delete_file,
    .CreateDirectoryA = create_directory,
    .make_executable = make_executable,
    .creation_time = creation_time,
    .restart_age = restart_age,
};
