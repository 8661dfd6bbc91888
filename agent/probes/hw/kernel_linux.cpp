#include "platform/host_files_linux.h"
#include "probes/hw/kernel_ops.h"
#include "probes/hw/sg_io_linux.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

static int64_t read_source(const char *path, char *buffer, size_t size) {
    bool folder = path[strlen(path) - 1] == '/';
    return folder ? list_host_folder(path, buffer, size) : read_host_file(path, buffer, size);
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
