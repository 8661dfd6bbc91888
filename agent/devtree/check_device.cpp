#include "devtree/check_device.h"

#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/limits.h"
#include "devtree/naming.h"
#include "devtree/retention.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/text.h"

#include <cstring>

static resnode_guard new_result() {
    resnode_guard result(alloc_resnode());
    result->check_time = time_now();
    return result;
}

static resnode *unknown_device(const devnode *device) {
    text_guard name(devnode_full_name(device));
    agent_log(LOG_WARNING, "Unknown device in check_device(): %s", name.get());
    resnode_guard result = new_result();
    result->status = STATUS_ERROR;
    result->comment = text_copy("Unknown device");
    return result.release();
}

static void log_failure(const devnode *device, const char *text) {
    text_guard name(devnode_full_name(device));
    agent_log(LOG_WARNING, "Error checking %s: %s", name.get(), text);
}

static char *error_comment(const char *text) {
    if (strlen(text) <= COMMENT_LIMIT) return text_copy(text);
    agent_log(LOG_WARNING, "Truncating error description: \"%s\"", text);
    return text_copy_part(text, COMMENT_LIMIT);
}

static void make_error(const devnode *device, const char *text, resnode *result) {
    log_failure(device, text);
    result->status = STATUS_ERROR;
    result->value = 0;
    result->real_value = 0;
    // The check function's own wording wins.
    if (result->comment == nullptr) result->comment = error_comment(text);
}

// What a check function's answer makes of the result: absent when there is nothing to report.
static resnode *judge(const devnode *device, const char *text, resnode_guard result) {
    if (device->type == TYPE_ACTION) {
        if (text != nullptr && text != CHECK_NO_RESULT)
            agent_log(LOG_WARNING, "Message for AgentAction: %s", text);
        return nullptr;
    }
    if (text == nullptr && device->type == TYPE_REAL_CONTINUOUS && !is_finite(result->real_value))
        text = "Gave neither error nor valid result";
    if (text == CHECK_NO_RESULT) return nullptr;
    if (text != nullptr)
        make_error(device, text, result.get());
    else
        result->status = evaluate_limits(device, result.get());
    return result.release();
}

static resnode *check_family(devnode *device, const check_entry *entry) {
    bool self_queued = (entry->flags & CHECK_SELF_QUEUE) != 0;
    resnode_guard result = self_queued ? nullptr : new_result();
    const char *text = (entry->flags & CHECK_DISABLED) != 0 ? "Disabled by configuration"
                                                            : entry->check(device, result.get());
    if (!self_queued) return judge(device, text, std::move(result));
    if (text != nullptr && text != CHECK_NO_RESULT) log_failure(device, text);
    return nullptr;
}

static resnode *check_regression(devnode *device) {
    resnode_guard result = new_result();
    if (regression_wave(device, result.get()) != 0) return nullptr;
    fake_idle_flag = 0;
    return judge(device, nullptr, std::move(result));
}

resnode *check_device(devnode *device) {
    const devtree *top = group_at_depth(device, 1);
    if (fake_results_flag != 0) return fake_result(device, new_result().release());
    if (regression_flag != 0) return check_regression(device);
    const check_entry *entry = top != nullptr ? find_check_entry(top->id) : nullptr;
    // A family whose check is not there is as unknown as one that is not listed, unless it is turned off.
    if (entry == nullptr || (entry->check == nullptr && (entry->flags & CHECK_DISABLED) == 0))
        return unknown_device(device);
    return check_family(device, entry);
}

void run_check(devnode *device) {
    if (resnode *result = check_device(device)) append_result(device, result);
    discard_old_results(device);
}
