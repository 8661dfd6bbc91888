#include "core/signals.h"

#include "core/run_loop.h"
#include "platform/waits.h"
#include "state/log_rotation.h"

const signals_ops *signals_host;

void stop_signalled() {
    terminate_flag.store(1, std::memory_order_relaxed);
}

void force_signalled() {
    force_checkin_flag.store(1, std::memory_order_relaxed);
}

void burst_signalled() {
    burst_flag.store(1, std::memory_order_relaxed);
}

void reopen_signalled() {
    reopen_log_flag.store(1, std::memory_order_relaxed);
}
