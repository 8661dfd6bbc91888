// The handlers of the signals.

#include "core/signals.h"
#include "platform/waits_linux.h"

#include <cerrno>
#include <csignal>

namespace {

struct signal_row {
    int number;
    void (*signalled)();
    bool stops;
};

constexpr signal_row rows[] = {
    {SIGTERM, stop_signalled, true},   {SIGINT, stop_signalled, true},    {SIGUSR1, force_signalled, false},
    {SIGUSR2, burst_signalled, false}, {SIGHUP, reopen_signalled, false},
};

volatile sig_atomic_t stop_file = -1;
volatile sig_atomic_t watch_stop_file = -1;
volatile sig_atomic_t user_file = -1;

} // namespace

static void wake(int file) {
    if (file >= 0) signal_descriptor(file);
}

static void handle(int number) {
    int kept = errno;
    for (const signal_row &row : rows) {
        if (row.number != number) continue;
        row.signalled();
        wake(row.stops ? stop_file : user_file);
        if (row.stops) wake(watch_stop_file);
    }
    errno = kept;
}

static void set_handlers(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const signal_row &row : rows)
        sigaction(row.number, &action, nullptr);
}

static int file_of(const waitable *event) {
    return event != nullptr ? event->file : -1;
}

static void install(const signal_events &events) {
    stop_file = file_of(events.stop);
    watch_stop_file = file_of(events.watch_stop);
    user_file = file_of(events.user);
    signal(SIGPIPE, SIG_IGN);
    set_handlers(handle);
}

// The events are about to be closed. The flags go on being set, so that a second signal does not end the
// process in the midst of its clean-up.
static void remove_files() {
    stop_file = -1;
    watch_stop_file = -1;
    user_file = -1;
}

const signals_ops signals_ops_host = {.install = install, .remove = remove_files};
