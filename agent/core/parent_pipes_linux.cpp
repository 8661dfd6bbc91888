#include "core/parent_pipes_ops.h"
#include "platform/waits_linux.h"

#include <cerrno>
#include <poll.h>
#include <unistd.h>

// Whether there is something to read, and no stop before it.
static bool wait_for_byte(int file, const waitable *stop) {
    pollfd files[] = {{.fd = file, .events = POLLIN},
                      {.fd = stop != nullptr ? stop->file : -1, .events = POLLIN}};
    int ready;
    do
        ready = poll(files, 2, -1);
    while (ready < 0 && errno == EINTR);
    return ready > 0 && files[1].revents == 0;
}

static bool read_byte(int32_t handle, waitable *stop, uint8_t *out, uint32_t *out_count) {
    *out_count = 0;
    ssize_t got;
    do {
        if (!wait_for_byte(handle, stop)) return false;
        got = read(handle, out, 1);
    } while (got < 0 && (errno == EINTR || errno == EAGAIN));
    if (got != 1) return false;
    *out_count = 1;
    return true;
}

static bool write_byte(int32_t handle, uint8_t byte, uint32_t *out_count) {
    *out_count = 0;
    errno = EBADF; // descriptor 0 is this process's own input, and no pipe of a launcher
    ssize_t written;
    do
        written = handle != 0 ? write(handle, &byte, 1) : -1;
    while (written < 0 && errno == EINTR);
    if (written < 0) return false;
    *out_count = static_cast<uint32_t>(written);
    return true;
}

const parent_pipe_ops parent_pipe_ops_host = {.ReadFile = read_byte, .WriteFile = write_byte};
