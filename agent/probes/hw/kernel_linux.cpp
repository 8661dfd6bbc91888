#include "probes/hw/kernel_ops.h"
#include "probes/hw/sg_io_linux.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

static int64_t list_folder(const char *path, char *buffer, size_t size) {
    DIR *folder = opendir(path);
    if (folder == nullptr) return -1;
    size_t length = 0;
    while (const dirent *entry = readdir(folder)) {
        size_t name = strlen(entry->d_name);
        if (entry->d_name[0] == '.') continue;
        if (length + name + 1 >= size) {
            length = size;
            break;
        }
        memcpy(buffer + length, entry->d_name, name);
        buffer[length + name] = '\n';
        length += name + 1;
    }
    closedir(folder);
    return static_cast<int64_t>(length);
}

// One read gives the whole of a small file of sysfs.
static int64_t read_file(const char *path, char *buffer, size_t size) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return -1;
    ssize_t length = read(file, buffer, size);
    close(file);
    return length;
}

static int64_t read_source(const char *path, char *buffer, size_t size) {
    bool folder = path[strlen(path) - 1] == '/';
    return folder ? list_folder(path, buffer, size) : read_file(path, buffer, size);
}

static bool exists(const char *path) {
    return access(path, F_OK) == 0;
}

static kernel_node open_node(const char *path, node_access access) {
    int node = open(path, (access == NODE_READ ? O_RDONLY : O_RDWR) | O_NONBLOCK | O_CLOEXEC);
    return node >= 0 ? node : NO_NODE;
}

static void close_node(kernel_node node) {
    int reason = errno;
    close(static_cast<int>(node));
    errno = reason;
}

static void set_last_error(uint32_t code) {
    errno = static_cast<int>(code);
}

const kernel_ops kernel_ops_host = {
    .read_source = read_source,
    .exists = exists,
    .open_node = open_node,
    .close_node = close_node,
    .send_scsi = sg_io,
    .send_ciss = ciss_io,
    .set_last_error = set_last_error,
};
