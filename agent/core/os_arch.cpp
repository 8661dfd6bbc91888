#include "core/os_arch.h"

#include "core/command_channel.h"
#include "core/parent_pipes.h"
#include "core/signals.h"
#include "core/start_flags.h"
#include "core/upgrade.h"
#include "platform/agent_log.h"
#include "platform/version.h"
#include "platform/waits.h"

waitable *signal_ev;

// Ends the main loop's sleep alone: the short sleeps inside probes go on through a user's signal.
static waitable *user_signal_ev;

// Ends the watching of the launcher on a signal, however silent the launcher is.
static waitable *watch_stop_ev;

static void add_events() {
    if (add_wakeup_event(signal_ev, nullptr) == 0) agent_log(LOG_WARNING, "add_wakeup_event() failed");
    if (add_wait_event(signal_ev) == 0) agent_log(LOG_WARNING, "add_wait_event() failed");
}

static void listen_to_signals() {
    if (signals_host->install == nullptr) return;
    user_signal_ev = waits_host->CreateEventA(false, false);
    if (user_signal_ev != nullptr && add_wait_event(user_signal_ev) == 0)
        agent_log(LOG_WARNING, "add_wait_event() failed");
    signals_host->install({signal_ev, watch_stop_ev, user_signal_ev});
}

void init_os_arch_specific() {
    agent_log(LOG_DETAIL, "init_os_arch_specific (%s)", host_word);
    signal_ev = waits_host->CreateEventA(false, false);
    if (signals_host->install != nullptr) watch_stop_ev = waits_host->CreateEventA(true, false);
    start_watching_parent(watch_stop_ev);
    if (signal_ev != nullptr) add_events();
    if (down_flag == 0) setup_command_named_pipe();
    listen_to_signals();
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

static void close_event(waitable **event) {
    if (*event == nullptr) return;
    del_wait_event(*event);
    waits_host->CloseHandle(*event);
    *event = nullptr;
}

void platform_cleanup() {
    end_watching_parent();
    if (signals_host->remove != nullptr) signals_host->remove();
    if (signal_ev != nullptr) close_signal_event();
    if (down_flag == 0) close_command_pipe();
    close_event(&user_signal_ev);
    close_event(&watch_stop_ev);
}

void os_arch_reset() {
    signal_ev = user_signal_ev = watch_stop_ev = nullptr;
}
