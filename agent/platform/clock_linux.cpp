#include "platform/clock.h"

#include <cerrno>
#include <sys/random.h>

// time() lags behind by up to a tick of the kernel, and would disagree with a server on this host about the
// second.
static int64_t host_time() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
}

static bool host_localtime(int64_t time, tm *out) {
    time_t seconds = time;
    return localtime_r(&seconds, out) != nullptr;
}

static void host_sleep(uint32_t milliseconds) {
    timespec rest = {.tv_sec = milliseconds / 1000,
                     .tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

static bool host_random_bytes(void *buffer, size_t count) {
    auto *at = static_cast<unsigned char *>(buffer);
    while (count > 0) {
        ssize_t got = getrandom(at, count, 0);
        if (got < 0 && errno != EINTR) return false;
        if (got > 0) {
            at += got;
            count -= static_cast<size_t>(got);
        }
    }
    return true;
}

const clock_ops clock_ops_host = {.time = host_time, .localtime = host_localtime, .Sleep = host_sleep};
const random_ops random_ops_host = {.random_bytes = host_random_bytes};
