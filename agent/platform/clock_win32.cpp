#include "platform/clock.h"

#include <windows.h>

#include <bcrypt.h>

static int64_t host_time() {
    return time(nullptr);
}

static bool host_localtime(int64_t time, tm *out) {
    return _localtime64_s(out, &time) == 0;
}

static void host_sleep(uint32_t milliseconds) {
    Sleep(milliseconds);
}

static bool host_random_bytes(void *buffer, size_t count) {
    auto *at = static_cast<unsigned char *>(buffer);
    while (count > 0) {
        ULONG part = count < 0x10000000 ? static_cast<ULONG>(count) : 0x10000000;
        if (BCryptGenRandom(nullptr, at, part, BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0) return false;
        at += part;
        count -= part;
    }
    return true;
}

const clock_ops clock_ops_host = {.time = host_time, .localtime = host_localtime, .Sleep = host_sleep};
const random_ops random_ops_host = {.random_bytes = host_random_bytes};
