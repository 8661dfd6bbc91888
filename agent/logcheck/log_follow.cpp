#include "logcheck/log_follow.h"

#include "logcheck/log_cutter.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "platform/waits.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int64_t PARKED = -1; // the offset of a file that is too large
constexpr int64_t LARGEST_TAKEN_BACK = 0x1FFFFFF;

// One check of one file.
struct log_follower {
    const char *path;
    devnode *device;
    log_state *state;
    followed_file log;
    bool still_growing;
};

} // namespace

static void report(devnode *device, uint32_t status, const char *text) {
    resnode_guard result(alloc_resnode());
    result->check_time = time_now();
    result->status = status;
    result->log_text = text_copy(text);
    if (result->log_text == nullptr) fatal("alloc_resnode() ran out of memory!");
    append_result(device, result.release());
}

static int64_t end_of(followed_file *log) {
    static_cast<void>(files_host->seek64(log->handle, 0, FROM_END));
    return files_host->tell64(log->handle);
}

// ---- where the last check ended

// What a log held before this host first saw it is never reported.
static const char *start_at_end(log_follower *follower) {
    if (!files_host->seek64(follower->log.handle, 0, FROM_END))
        return format_error("Error seeking end of logfile: %s", last_error_text());
    follower->state->offset = files_host->tell64(follower->log.handle);
    return nullptr;
}

static const char *load_state(log_follower *follower) {
    log_state *state = follower->state;
    bool known = read_log_state(follower->device, state);
    if (!known)
        if (auto *failure = start_at_end(follower)) return failure;
    agent_log(LOG_TRACE, "first_data_len is %d, and last_data_len is %d",
              static_cast<int>(state->first_data_len), static_cast<int>(state->last_data_len));
    return nullptr;
}

// Whether the file can be followed: one that was too large is taken back when it has become small.
static bool leave_parking(log_follower *follower) {
    if (follower->state->offset >= 0) return true;
    int64_t size = end_of(&follower->log);
    if (size < 1 || size > LARGEST_TAKEN_BACK) return false;
    follower->state->offset = 0;
    report(follower->device, STATUS_GOOD, "Log file truncated, once again checking entries.");
    agent_log(LOG_ERROR, "File '%s' truncated, once again checking entries.", follower->path);
    return true;
}

// ---- whether it is still the same file

static bool beginning_changed(log_follower *follower) {
    const log_state *state = follower->state;
    char now[SAMPLE_SIZE];
    if (state->first_data_len == 0) {
        agent_log(LOG_TRACE, "No first data stored for this file");
        return false;
    }
    size_t got = read_followed_at(&follower->log, 0, now, state->first_data_len);
    if (got != state->first_data_len || memcmp(now, state->first_data, got) == 0) return false;
    agent_log(LOG_TRACE, "Logfile must have been rotated because of changes at the beginning of the file");
    return true;
}

static bool became_smaller(const log_follower *follower, int64_t size) {
    if (size >= follower->state->offset) return false;
    agent_log(LOG_TRACE, "Logfile is smaller than last time. Must be rotated");
    return true;
}

static bool end_changed(log_follower *follower) {
    const log_state *state = follower->state;
    char now[SAMPLE_SIZE];
    if (state->offset < int64_t{SAMPLE_SIZE}) return false;
    size_t got = read_followed_at(&follower->log, state->offset - int64_t{SAMPLE_SIZE}, now, SAMPLE_SIZE);
    if (got != SAMPLE_SIZE || memcmp(now, state->last_data, state->last_data_len) == 0) return false;
    agent_log(LOG_TRACE, "Logfile have changed in the last read data. Must be rotated");
    return true;
}

// The beginning is always looked at, the size wins over it, and the end is looked at when both say nothing.
static const char *rotation_reason(log_follower *follower, int64_t *out_size) {
    const char *reason = beginning_changed(follower) ? "content changes at beginning" : nullptr;
    *out_size = end_of(&follower->log);
    if (became_smaller(follower, *out_size)) reason = "smaller than before";
    if (reason == nullptr && end_changed(follower)) reason = "content changes at end";
    return reason;
}

static void start_new_file(log_follower *follower, const char *reason) {
    log_state *state = follower->state;
    static_cast<void>(files_host->seek64(follower->log.handle, 0, FROM_START));
    state->offset = state->size = 0;
    state->first_data_len = state->last_data_len = 0;
    follower->still_growing = true;
    agent_log(LOG_NORMAL, "Rotation of log file '%s' detected (%s)", follower->path, reason);
}

static void go_to_start(log_follower *follower) {
    int64_t size;
    if (const char *reason = rotation_reason(follower, &size)) {
        start_new_file(follower, reason);
        return;
    }
    agent_log(LOG_TRACE, "Log is not rotated");
    static_cast<void>(files_host->seek64(follower->log.handle, follower->state->offset, FROM_START));
    follower->still_growing = size != follower->state->size;
}

// ---- where this check ended

static void take_samples(log_follower *follower) {
    log_state *state = follower->state;
    followed_file *log = &follower->log;
    state->first_data_len = read_followed_at(log, 0, state->first_data, SAMPLE_SIZE);
    state->last_data_len = 0;
    if (state->offset >= int64_t{SAMPLE_SIZE})
        state->last_data_len =
            read_followed_at(log, state->offset - int64_t{SAMPLE_SIZE}, state->last_data, SAMPLE_SIZE);
}

static void park(log_follower *follower) {
    follower->state->offset = follower->state->size = PARKED;
    report(follower->device, STATUS_ALERT, "Log file is too large, not checking further entries.");
    agent_log(LOG_ERROR, "File '%s' too large, not checking further entries.", follower->path);
}

static void remember_end(log_follower *follower, size_t remainder) {
    log_state *state = follower->state;
    int64_t position = files_host->tell64(follower->log.handle);
    if (position < state->offset) {
        park(follower);
        return;
    }
    state->size = position;
    state->offset = position - static_cast<int64_t>(remainder);
    take_samples(follower);
}

static const char *follow(log_follower *follower, bool first_check) {
    if (first_check)
        if (auto *failure = load_state(follower)) return failure;
    if (!leave_parking(follower)) return nullptr;
    go_to_start(follower);
    size_t remainder;
    if (auto *failure =
            cut_log_records(&follower->log, follower->device, follower->still_growing, &remainder))
        return failure;
    remember_end(follower, remainder);
    return nullptr;
}

// A rotation may just be under way, so a file that is not there gets a second to come.
static const char *open_file(const char *path, followed_file *out) {
    const char *reason;
    if (open_followed(path, out, &reason)) return nullptr;
    static_cast<void>(sleep_interruptible(1));
    if (open_followed(path, out, &reason)) return nullptr;
    return format_error("Could not open log file \"%s\": %s", path, reason);
}

const char *follow_log_file(const char *path, devnode *device, log_state *state, bool first_check) {
    log_follower follower = {.path = path, .device = device, .state = state};
    if (auto *failure = open_file(path, &follower.log)) return failure;
    const char *failure = follow(&follower, first_check);
    close_followed(&follower.log);
    return failure;
}
