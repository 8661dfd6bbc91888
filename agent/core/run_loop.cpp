#include "core/run_loop.h"

#include "core/command_channel.h"
#include "core/due_index.h"
#include "core/os_arch.h"
#include "core/parent_pipes.h"
#include "core/schedule.h"
#include "core/upgrade.h"
#include "devtree/check_device.h"
#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "logcheck/log_silence.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/fatal.h"
#include "platform/version.h"
#include "platform/waits.h"
#include "probes/os/host_info.h"
#include "protocol/authentication.h"
#include "protocol/checkin.h"
#include "protocol/registration.h"
#include "settings/settings.h"
#include "state/log_rotation.h"
#include "state/variables.h"

#include <algorithm>

std::atomic<int32_t> force_checkin_flag;
std::atomic<int32_t> burst_flag;
std::atomic<int32_t> upgrade_pending;

namespace {

constexpr int64_t NEVER = INT64_MAX;
constexpr int64_t LATE = 5; // seconds behind the checkin's due time
constexpr int32_t REGRESSION_HOLD = 2;

// One pass of the main cycle.
struct pass {
    devnode *device;
    int64_t now;
    int64_t next_due;
    int64_t checkin_due;
};

} // namespace

static bool is_ending() {
    return terminate_flag.load(std::memory_order_relaxed) != 0 ||
           upgrade_pending.load(std::memory_order_relaxed) != 0;
}

static const char *server_name() {
    const char *name = config_in_force->servers[server_index].name;
    return name != nullptr ? name : "(null)"; // of an empty list
}

static void log_changed_server(int32_t level) {
    if (server_changed != 0) agent_log(level, "Changed server to: %s", server_name());
    server_changed = 0;
}

static void log_hold(int32_t hold) {
    if (hold != 0) agent_log(LOG_WARNING, "On hold for %i seconds...", hold);
}

// Preparation.

static void log_banner(int restart) {
    const agent_config *config = config_in_force;
    if (restart != 0)
        agent_log(LOG_ERROR, "Restarting Tarnix %s Agent.", version_text);
    else
        agent_log(LOG_ERROR, "Tarnix %s Agent starting.", version_text);
    agent_log(LOG_NORMAL, "Tarnix agent name: %s: %s", config->domain,
              config->name != nullptr ? config->name : "(autodetect)");
    agent_log(LOG_NORMAL, "Communicating with Tarnix server: %s", server_name());
}

static void prepare(int restart) {
    active_tree = nullptr;
    host_info = nullptr;
    log_banner(restart);
    init_os_arch_specific();
    host_info = collect_host_info();
    // A dry run: it fills what the probes keep from a scan, and the flags of disabled families.
    free_devtree(scan_devices());
    tn_srand(static_cast<uint32_t>(time_now()));
}

// Registration.

static void log_registered() {
    int32_t level = failure_count > 0 ? LOG_NORMAL : LOG_DETAIL;
    failure_count = std::max(failure_count - 1, 0);
    agent_log(level, "Successfully registered with server.");
}

static void hold_registration(const char *reason) {
    count_failure();
    int32_t hold = regression_flag != 0 ? REGRESSION_HOLD : backoff_seconds();
    agent_log(LOG_NORMAL, "Failed to register with server. Will try again in %i seconds... (failures=%i)",
              hold, failure_count);
    agent_log(LOG_NORMAL, "Reason given: \"%s\"", reason);
    log_changed_server(LOG_NORMAL);
    log_hold(hold);
    wait_for_object(hold);
}

static void register_agent() {
    bool registered;
    do {
        auto *reason = register_with_server(config_in_force);
        registered = reason == nullptr;
        if (registered)
            log_registered();
        else
            hold_registration(reason);
        log_check_rotate();
        poll_download();
    } while (!registered && !is_ending());
}

// The main cycle.

static pass begin_pass() {
    pass next = {.device = due_index_next()};
    if (auto *failure = var_flush(0)) agent_log(LOG_ERROR, "Flush error: %s", failure);
    next.now = time_now();
    next.next_due = next.device != nullptr ? std::max(next.device->next_check, next.now) : NEVER;
    next.checkin_due = std::max({checkin_period_end(), next.now, hold_until});
    return next;
}

static void serve_signals(pass *current) {
    if (force_checkin_flag.exchange(0, std::memory_order_relaxed) != 0) {
        current->checkin_due = current->now;
        lift_results_limit();
        agent_log(LOG_NORMAL, "Checkin forced by SIGUSR1");
    }
    if (burst_flag.exchange(0, std::memory_order_relaxed) != 0) {
        mark_burst(active_tree);
        due_index_rebuild(active_tree);
        agent_log(LOG_NORMAL, "Burst requested by SIGUSR2");
    }
}

static void wait_until_due(pass *current) {
    while (current->now < current->checkin_due) {
        if (current->now >= current->next_due || is_ending()) return;
        int64_t nearest = std::min(current->checkin_due, current->next_due);
        wait_for_object(std::max<int64_t>(nearest - current->now, 1));
        current->now = time_now();
        serve_signals(current);
        log_check_rotate();
        poll_download();
    }
}

static void run_due_check(const pass &current) {
    devnode *device = current.device;
    agent_log(LOG_DETAIL, "Agent will check device %s type %i", device->id, static_cast<int>(device->type));
    bool repeats = regression_flag != 0 || device->next_check == BURST_MARK;
    uint32_t repeat = repeats ? fake_repeat_count : 1;
    for (uint32_t i = 0; i < repeat; i++)
        run_check(device);
    if (device->type == TYPE_ADV_LOG) log_silence_evaluate(device, current.now);
    if (time_now() >= current.checkin_due + LATE)
        agent_log(LOG_WARNING, "Agent is late for check-in due to slow check \"%s\" type %i", device->id,
                  static_cast<int>(device->type));
    // From the time before the check, so that a slow one does not shift its own period.
    device->next_check = device->frequency + current.now;
    due_index_next();
    if (last_checkin == 0) last_checkin = time_now();
}

static void run_actions(int64_t now) {
    while (devnode *action = find_unrun_action(action_tree)) {
        run_check(action);
        action->next_check = now; // it runs once, and goes with the next acknowledged checkin
    }
}

static void end_regression_run() {
    if (regression_flag == 0) return;
    if (fake_idle_flag == 0) {
        fake_idle_flag = 1;
        return;
    }
    agent_log(LOG_DETAIL, "All fake checks are done. Exiting.");
    if (auto *failure = var_flush(1)) agent_log(LOG_ERROR, "Flush error: %s", failure);
    platform_cleanup();
    process_exit(0);
}

static void checkin_done(int64_t now, int32_t acknowledged) {
    int32_t level = failure_count > 0 ? LOG_NORMAL : LOG_DETAIL;
    failure_count = std::max(failure_count - 1, 0);
    agent_log(level, "Successful checkin (failures = %i)!", failure_count);
    run_actions(now);
    if (acknowledged == 0) return;
    last_checkin = time_now();
    report_alive();
    end_regression_run();
}

static void checkin_failed(const char *reason) {
    count_failure();
    int32_t hold = backoff_seconds();
    hold_until = time_now() + hold;
    agent_log(LOG_WARNING, "Agent failed checkin (failures = %i)!", failure_count);
    agent_log(LOG_WARNING, "Reason given: \"%s\"", reason);
    log_changed_server(LOG_WARNING);
    log_hold(hold);
}

static void run_checkin(int64_t now) {
    int32_t acknowledged = 0;
    auto *reason = checkin(config_in_force, &acknowledged);
    due_index_rebuild(active_tree); // the checkin may have brought another tree
    if (reason == nullptr)
        checkin_done(now, acknowledged);
    else
        checkin_failed(reason);
}

static void run_cycle() {
    due_index_rebuild(active_tree);
    while (!is_ending()) {
        pass current = begin_pass();
        wait_until_due(&current);
        bool check_due = current.now >= current.next_due || (last_checkin == 0 && current.device != nullptr);
        bool checkin_now = current.now >= current.checkin_due;
        if (checkin_now)
            run_checkin(current.now);
        else if (check_due)
            run_due_check(current);
    }
}

[[noreturn]] static void leave() {
    due_index_clear();
    free_devtree(active_tree);
    active_tree = nullptr;
    free_clinfo_list(host_info);
    host_info = nullptr;
    if (auto *failure = var_flush(1)) agent_log(LOG_ERROR, "Flush error: %s", failure);
    platform_cleanup();
    if (upgrade_pending != 0 && terminate_flag == 0) {
        upgrade_pending = 0;
        attempt_upgrade();
    }
    agent_log(LOG_ERROR, "Tarnix %s Agent shutting down.", version_text);
    process_exit(0);
}

void run_loop(int restart) {
    prepare(restart);
    register_agent();
    run_cycle();
    leave();
}

void run_loop_reset() {
    force_checkin_flag = burst_flag = 0;
    upgrade_pending = 0;
    due_index_clear();
    schedule_reset();
}
