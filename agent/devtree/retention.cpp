#include "devtree/retention.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "settings/settings.h"

static int64_t last_discard_warning;

static constexpr uint32_t DAY = 86400;
static constexpr int64_t WARNING_PAUSE = 3600; // seconds without any discard

static int32_t drop_before(devnode *device, int64_t limit) {
    int32_t count = 0;
    while (device->results != nullptr && device->results->check_time < limit) {
        resnode *oldest = device->results;
        device->results = oldest->next;
        free_resnode(oldest);
        count++;
    }
    if (device->results == nullptr) device->results_tail = &device->results;
    return count;
}

void discard_old_results(devnode *device) {
    int32_t days = config_in_force->max_data_retention_days;
    if (days <= 0) return;
    int64_t now = time_now();
    auto seconds = static_cast<int32_t>(static_cast<uint32_t>(days) * DAY); // wraps in 32 bits
    int32_t count = drop_before(device, now - seconds);
    if (count == 0) return;
    agent_log(LOG_TRACE, "%s: Discarded %d records", device->id, count);
    if (last_discard_warning + WARNING_PAUSE < now)
        agent_log(LOG_DETAIL, "WARNING: Max data retention time exceeded, discarding data!");
    last_discard_warning = now;
}

void retention_reset() {
    last_discard_warning = 0;
}
