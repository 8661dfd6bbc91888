#include "core/schedule.h"

#include "devtree/fake_checks.h"
#include "logcheck/log_silence.h"
#include "platform/clock.h"
#include "settings/settings.h"

#include <algorithm>

int32_t failure_count = 1;
int64_t last_checkin;
int64_t hold_until;

namespace {

constexpr int32_t SHORTEST_PERIOD = 10; // seconds
constexpr int32_t UNSET_PERIOD = 60;    // seconds, for a checkin_freq of -1

} // namespace

void count_failure() {
    if (failure_count < config_in_force->server_count + FAILURES_BEYOND_SERVERS) failure_count++;
}

int32_t backoff_seconds() {
    const agent_config *config = config_in_force;
    if (failure_count < config->server_count || regression_flag != 0) return 0;
    int32_t period = std::max(config->checkin_freq, SHORTEST_PERIOD);
    // The server may order a period with which the product wraps in 32 bits.
    auto weight = static_cast<uint32_t>(failure_count - config->server_count + 2);
    auto product = static_cast<int32_t>(weight * static_cast<uint32_t>(period));
    return product / 10 + tn_rand() % (period / 5);
}

int64_t checkin_period_end() {
    int32_t period = config_in_force->checkin_freq;
    return last_checkin + (period == -1 ? UNSET_PERIOD : std::max(period, SHORTEST_PERIOD));
}

bool checkin_overdue() {
    // Without a period the base is a point of time that has always passed, unlike in the main loop.
    int64_t base = config_in_force->checkin_freq == -1 ? UNSET_PERIOD : checkin_period_end();
    return std::max(base, hold_until) < time_now();
}

// A silence limit falls due on time even if the check's own period is long.
void pull_forward_for_silence(devnode *device) {
    const lognode *limits = device->lognode;
    if (device->type != TYPE_ADV_LOG || device->next_check == 0 || limits == nullptr) return;
    if (limits->warningSilence == -1 && limits->alertSilence == -1) return;
    int64_t timestamp;
    int32_t status;
    log_silence_read(device, &timestamp, &status);
    if (limits->warningSilence != -1 && status == 0)
        device->next_check = std::min(device->next_check, timestamp + limits->warningSilence);
    if (limits->alertSilence != -1 && (status == 0 || status == 1))
        device->next_check = std::min(device->next_check, timestamp + limits->alertSilence);
}

static void find_earlier(devtree *group, devnode **best) {
    for (; group != nullptr; group = group->next) {
        for (devnode *device = group->devices; device != nullptr; device = device->next) {
            pull_forward_for_silence(device);
            if (*best == nullptr || device->next_check < (*best)->next_check) *best = device;
        }
        find_earlier(group->children, best);
    }
}

devnode *find_next_due(devtree *tree) {
    devnode *best = nullptr;
    find_earlier(tree, &best);
    return best;
}

devnode *find_unrun_action(devtree *tree) {
    for (; tree != nullptr; tree = tree->next) {
        for (devnode *device = tree->devices; device != nullptr; device = device->next)
            if (device->next_check == 0) return device;
        if (devnode *device = find_unrun_action(tree->children)) return device;
    }
    return nullptr;
}

void mark_burst(devtree *tree) {
    for (; tree != nullptr; tree = tree->next) {
        for (devnode *device = tree->devices; device != nullptr; device = device->next)
            device->next_check = BURST_MARK;
        mark_burst(tree->children);
    }
}

void schedule_reset() {
    failure_count = 1;
    last_checkin = hold_until = 0;
}
