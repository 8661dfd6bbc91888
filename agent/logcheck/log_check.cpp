#include "logcheck/log_check.h"

#include "logcheck/event_log.h"
#include "logcheck/log_follow.h"
#include "logcheck/log_path.h"
#include "platform/clock.h"
#include "platform/text.h"

#include <cstring>

bool (*checkin_overdue_hook)();

static bool is_below(const devnode *device, const char *id) {
    const devtree *group = group_at_depth(device, 2);
    return group != nullptr && text_equal_folded(group->id, id);
}

static const char *read_log(devnode *device, log_state *state, bool first_check) {
    if (is_below(device, "/forward")) return nullptr; // its entries come from other logs
    if (is_below(device, "eventlog")) return read_event_log(device, first_check);
    text_guard path(log_file_path(device));
    return follow_log_file(path.get(), device, state, first_check);
}

// Every check reports at least that it ran.
static void report_run(devnode *device) {
    if (device->results != nullptr) return;
    resnode_guard result(alloc_resnode());
    result->check_time = time_now();
    append_result(device, result.release());
}

const char *check_log(devnode *device, resnode *) {
    bool first_check;
    log_state *state = log_state_of(device, &first_check);
    const char *failure = read_log(device, state, first_check);
    write_log_state(device, state);
    report_run(device);
    return failure;
}
