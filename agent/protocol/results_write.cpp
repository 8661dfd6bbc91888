// Results on the wire, and their removal once the server has them.

#include "platform/agent_log.h"
#include "protocol/ber.h"
#include "protocol/checkin.h"
#include "protocol/records.h"
#include "protocol/time_sync.h"

static constexpr uint32_t LOG_TEXT_LIMIT = 65536;

static const char *write_groups(io *stream, const devtree *group) {
    if (group == nullptr) return nullptr;
    if (auto *failure = write_groups(stream, group->parent)) return failure;
    return write_string(stream, NAME_LIMIT, group->id);
}

static const char *write_path(io *stream, const devnode *device) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    if (auto *failure = write_groups(stream, device->parent)) return failure;
    if (auto *failure = write_string(stream, NAME_LIMIT, device->id)) return failure;
    return write_eoc(stream);
}

static const char *write_integer_value(io *stream, const resnode *result) {
    return write_signed_int(stream, INT32_MIN, INT32_MAX, result->value);
}

static const char *write_real_value(io *stream, const resnode *result) {
    if (result->comment != nullptr)
        agent_log(LOG_TRACE, "Sending RealContinuous with error \"%s\"", result->comment);
    else
        agent_log(LOG_TRACE, "Sending RealContinuous with value \"%f\"", result->real_value);
    return write_real(stream, result->real_value);
}

static const char *write_value(io *stream, const devnode *device, const resnode *result) {
    if (is_bitmap_type(device->type)) {
        agent_log(LOG_TRACE, "Sending Bitmap");
        return write_integer_value(stream, result);
    }
    switch (device->type) {
    case TYPE_CONTINUOUS:
        agent_log(LOG_TRACE, "Sending Continuous");
        return write_integer_value(stream, result);
    case TYPE_ACTION:
        agent_log(LOG_TRACE, "Sending AgentAction");
        return write_null(stream);
    case TYPE_LOG:
    case TYPE_ADV_LOG:
        agent_log(LOG_TRACE, "Sending Log");
        return write_string(stream, LOG_TEXT_LIMIT, result->log_text);
    case TYPE_REAL_CONTINUOUS:
        return write_real_value(stream, result);
    default:
        agent_log(LOG_DETAIL, "Unhandled check type - sending null");
        return write_null(stream);
    }
}

// A queue sends a comment only with the last result of it that goes out; those of the older ones stay behind.
static const char *comment_of(const resnode *result, uint32_t remaining) {
    return remaining > 1 && result->next != nullptr ? nullptr : result->comment;
}

static const char *write_result(io *stream, const devnode *device, const resnode *result,
                                uint32_t remaining) {
    uint32_t check_time = static_cast<uint32_t>(result->check_time) - static_cast<uint32_t>(time_offset);
    check_result record = {.checkTime = static_cast<int32_t>(check_time),
                           .comment = comment_of(result, remaining),
                           .status = result->status};
    if (auto *failure = write_check_result_incomplete(stream, &record)) return failure;
    if (auto *failure = write_path(stream, device)) return failure;
    if (auto *failure = write_value(stream, device, result)) return failure;
    if (result == device->results && device->conf_id != nullptr)
        if (auto *failure = write_string(stream, NAME_LIMIT, device->conf_id)) return failure;
    return write_eoc(stream);
}

static const char *write_queue(io *stream, const devnode *device, uint32_t *remaining) {
    for (const resnode *result = device->results; result != nullptr && *remaining > 0;
         result = result->next) {
        if (auto *failure = write_result(stream, device, result, *remaining)) return failure;
        --*remaining;
    }
    return nullptr;
}

const char *checkin_write_devtree(io *stream, const devtree *group, uint32_t *remaining) {
    for (; group != nullptr; group = group->next) {
        agent_log(LOG_TRACE, "checkin_write_devtree[%s]", group->name != nullptr ? group->name : "(null)");
        for (const devnode *device = group->devices; device != nullptr; device = device->next) {
            if (*remaining == 0) return nullptr;
            if (auto *failure = write_queue(stream, device, remaining)) return failure;
        }
        if (auto *failure = checkin_write_devtree(stream, group->children, remaining)) return failure;
    }
    return nullptr;
}

static void drop_queue(devnode *device, uint32_t *remaining) {
    for (; device->results != nullptr && *remaining > 0; --*remaining) {
        resnode *oldest = device->results;
        device->results = oldest->next;
        free_resnode(oldest);
    }
    if (device->results == nullptr) device->results_tail = &device->results;
}

void checkin_drop_results(devtree *group, uint32_t *remaining) {
    for (; group != nullptr; group = group->next) {
        for (devnode *device = group->devices; device != nullptr; device = device->next) {
            if (*remaining == 0) return;
            drop_queue(device, remaining);
        }
        checkin_drop_results(group->children, remaining);
    }
}
