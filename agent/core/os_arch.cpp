#include "core/os_arch.h"

#include "core/signals.h"
#include "core/upgrade.h"
#include "platform/agent_log.h"
#include "platform/version.h"
#include "platform/waits.h"

waitable *signal_ev;

// Ends the main loop's sleep alone: the short sleeps inside probes go on through a user's signal.
static waitable *user_signal_ev;

static void add_events() {
    if (add_wakeup_event(signal_ev, nullptr) == 0) agent_log(LOG_WARNING, "add_wakeup_event() failed");
    if (add_wait_event(signal_ev) == 0) agent_log(LOG_WARNING, "add_wait_event() failed");
}

void init_os_arch_specific() {
    agent_log(LOG_DETAIL, "init_os_arch_specific (%s)", host_word);
    signal_ev = waits_host->CreateEventA(false, false);
    if (signal_ev != nullptr) add_events();
    user_signal_ev = waits_host->CreateEventA(false, false);
    if (user_signal_ev != nullptr && add_wait_event(user_signal_ev) == 0)
        agent_log(LOG_WARNING, "add_wait_event() failed");
    if (signals_host->install != nullptr) signals_host->install(signal_ev, user_signal_ev);
    if (upgrade_failed != 0) {
        agent_log(LOG_WARNING, "Upgrade failed, using latest working version");
        upgrade_failed = 0;
    }
}

static void close_signal_event() {
    if (del_wakeup_event(signal_ev) == 0) agent_log(LOG_WARNING, "del_wakeup_event() failed for signal_ev");
    if (del_wait_event(signal_ev) == 0) agent_log(LOG_WARNING, "del_wait_event() failed for signal_ev");
    waits_host->CloseHandle(signal_ev);
    signal_ev = nullptr;
}

void platform_cleanup() {
    if (signals_host->remove != nullptr) signals_host->remove();
    if (signal_ev != nullptr) close_signal_event();
    if (user_signal_ev != nullptr) {
        del_wait_event(user_signal_ev);
        waits_host->CloseHandle(user_signal_ev);
        user_signal_ev = nullptr;
    }
}

void os_arch_reset() {
    signal_ev = user_signal_ev = nullptr;
}
