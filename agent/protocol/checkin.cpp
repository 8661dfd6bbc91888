#include "protocol/checkin.h"

#include "devtree/live_trees.h"
#include "devtree/transfer.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "protocol/authentication.h"
#include "protocol/ber.h"
#include "protocol/configure.h"
#include "protocol/lists.h"
#include "protocol/records.h"
#include "protocol/time_sync.h"
#include "state/variables.h"

namespace {

constexpr uint32_t LIMIT_STEP = 50;
constexpr int32_t REPLY_WAIT = 600;  // seconds
constexpr int32_t UNSET_PERIOD = 60; // seconds, for a checkin_freq of -1

// When each stage of a checkin ended.
struct checkin_times {
    int64_t start, connected, set_up, sent, answered;
};

struct checkin_reply {
    checkin_resp flags;
    devtree_guard actions;
    int32_t scan;
};

} // namespace

uint32_t results_limit = LIMIT_STEP;
void (*start_download_hook)(agent_config *config);

void lift_results_limit() {
    results_limit = UINT32_MAX;
}

static uint32_t count_results(const devtree *group) {
    uint32_t count = 0;
    for (; group != nullptr; group = group->next) {
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            for (const resnode *result = device->results; result != nullptr; result = result->next)
                count++;
        count += count_results(group->children);
    }
    return count;
}

static void log_count() {
    uint32_t count = count_results(active_tree);
    if (results_limit < count)
        agent_log(LOG_DETAIL, "Checking in, got %u results, throttling to max %u", count, results_limit);
    else
        agent_log(LOG_DETAIL, "Checking in %u results", count);
}

static const char *write_results(io *stream) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    uint32_t remaining = results_limit;
    if (auto *failure = checkin_write_devtree(stream, active_tree, &remaining)) return failure;
    if (auto *failure = checkin_write_devtree(stream, action_tree, &remaining)) return failure;
    if (auto *failure = write_eoc(stream)) return failure;
    return write_eoc(stream);
}

static const char *send_results(io *stream) {
    if (auto *failure = write_checkin_req_incomplete(stream)) return failure;
    log_count();
    if (auto *failure = write_results(stream)) return failure;
    return stream->flush(stream);
}

static const char *read_reply(io *stream, checkin_reply *out) {
    if (auto *failure = read_checkin_resp_incomplete(stream, &out->flags, 0)) return failure;
    devtree *actions = nullptr;
    if (auto *failure = read_action_conf_list(stream, nullptr, &actions)) return failure;
    out->actions.reset(actions);
    if (auto *failure = read_bool(stream, &out->scan, 0)) return failure;
    return skip_to_eol(stream);
}

static void take_acknowledgement(bool acknowledged, int32_t *out_acked) {
    if (!acknowledged) {
        agent_log(LOG_ERROR, "Checkin was not acknowledged by server.");
        return;
    }
    uint32_t remaining = results_limit;
    checkin_drop_results(active_tree, &remaining);
    checkin_drop_results(action_tree, &remaining);
    prune_ran_actions(&action_tree);
    *out_acked = 1;
}

// Of several top-level groups only the first is kept, in front of what is there.
static void take_actions(devtree_guard actions) {
    if (actions == nullptr) return;
    free_devtree(actions->next);
    actions->next = action_tree;
    action_tree = actions.release();
}

static void take_upgrade(agent_config *config) {
    if (config->allow_autoupgrade == 0)
        agent_log(LOG_DETAIL, "Server has upgrade, but i am not allowed to download it");
    else if (start_download_hook != nullptr)
        start_download_hook(config);
}

static void log_success(const agent_config *config, const checkin_times &times, int64_t end) {
    int32_t period = config->checkin_freq == -1 ? UNSET_PERIOD : config->checkin_freq;
    int32_t level = end - times.start >= period / 2 ? LOG_NORMAL : LOG_DETAIL;
    agent_log(level, "Checkin success, conn: %ds, setup: %ds, data: %ds, ack: %ds, finish: %ds",
              static_cast<int>(times.connected - times.start),
              static_cast<int>(times.set_up - times.connected), static_cast<int>(times.sent - times.set_up),
              static_cast<int>(times.answered - times.sent), static_cast<int>(end - times.answered));
}

// Everything behind the time exchange. The caller closes the stream.
static const char *deliver(io *stream, agent_config *config, checkin_times *times, int32_t *out_acked) {
    times->set_up = time_now();
    if (auto *failure = send_results(stream)) return failure;
    times->sent = time_now();
    stream->wait_readable(stream, REPLY_WAIT);
    times->answered = time_now();
    checkin_reply reply;
    if (auto *failure = read_reply(stream, &reply)) return failure;
    take_acknowledgement(reply.flags.checkinAck != 0, out_acked);
    if (reply.flags.confChanged != 0)
        if (auto *failure = configure_exchange(stream, config, reply.scan != 0)) return failure;
    take_actions(std::move(reply.actions));
    if (reply.flags.upgradeAvailable != 0) take_upgrade(config);
    int64_t end = time_now();
    if (auto *failure = var_flush(0)) return failure;
    log_success(config, *times, end);
    return nullptr;
}

const char *checkin_attempt(agent_config *config, int32_t *out_acked) {
    *out_acked = 0;
    checkin_times times = {};
    io *stream = nullptr;
    if (auto *failure = setup_connection(config, &stream, &times.start, &times.connected)) {
        agent_log(LOG_DETAIL, "setup_connection falied");
        return failure;
    }
    if (auto *failure = sync_server_time(stream)) {
        agent_log(LOG_DETAIL, "Server does not support time synchronization");
        return failure;
    }
    auto *failure = deliver(stream, config, &times, out_acked);
    stream->close(stream);
    return failure;
}

const char *checkin(agent_config *config, int32_t *out_acked) {
    auto *failure = checkin_attempt(config, out_acked);
    if (failure == nullptr) {
        if (results_limit <= UINT32_MAX - LIMIT_STEP) results_limit += LIMIT_STEP;
        return nullptr;
    }
    advance_server(config);
    results_limit = LIMIT_STEP;
    return failure;
}

void checkin_reset() {
    results_limit = LIMIT_STEP;
    start_download_hook = nullptr;
    time_offset = 0;
}
