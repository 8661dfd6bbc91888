#include "custom/quick_event_linux.h"

#include <cerrno>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint32_t UNSET = 0;
constexpr uint32_t SET = 1;
constexpr uint32_t SLEPT_ON = 2; // not set, and the thread that waits is to be woken

constexpr int LOOKS = 300; // some ten microseconds: what a sleep and a wake-up cost

} // namespace

static uint32_t *word_of(quick_event *event) {
    static_assert(sizeof event->state == sizeof(uint32_t));
    return reinterpret_cast<uint32_t *>(&event->state);
}

static bool take(quick_event *event) {
    uint32_t expected = SET;
    return event->state.compare_exchange_strong(expected, UNSET);
}

void quick_event_set(quick_event *event) {
    if (event->state.exchange(SET) == SLEPT_ON)
        syscall(SYS_futex, word_of(event), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void quick_event_reset(quick_event *event) {
    event->state = UNSET;
}

static bool look_for_a_moment(quick_event *event) {
    static const bool others_run = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    for (int i = 0; others_run && i < LOOKS; i++) {
        if (event->state.load(std::memory_order_relaxed) == SET) return take(event);
        __builtin_ia32_pause();
    }
    return take(event);
}

static timespec deadline_in(uint32_t milliseconds) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    now.tv_sec += milliseconds / 1000;
    now.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (now.tv_nsec >= 1'000'000'000) {
        now.tv_sec++;
        now.tv_nsec -= 1'000'000'000;
    }
    return now;
}

bool quick_event_wait(quick_event *event, uint32_t milliseconds) {
    if (look_for_a_moment(event)) return true;
    timespec deadline = deadline_in(milliseconds);
    const timespec *limit = milliseconds == UINT32_MAX ? nullptr : &deadline;
    for (;;) {
        uint32_t expected = UNSET;
        event->state.compare_exchange_strong(expected, SLEPT_ON);
        if (take(event)) return true;
        long woken = syscall(SYS_futex, word_of(event), FUTEX_WAIT_BITSET_PRIVATE, SLEPT_ON, limit, nullptr,
                             FUTEX_BITSET_MATCH_ANY);
        if (woken == 0 || errno != ETIMEDOUT) continue;
        expected = SLEPT_ON;
        return !event->state.compare_exchange_strong(expected, UNSET) && take(event);
    }
}
