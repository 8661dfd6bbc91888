#include "logcheck/log_cutter.h"

#include "logcheck/log_check.h"
#include "logcheck/log_follow.h"
#include "logcheck/log_rules.h"
#include "logcheck/rule_index.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/regex.h"

#include <cstring>

namespace {

// What a separator does to the records beside it; any other value drops it.
enum : uint32_t { CLOSES_RECORD = 0, OPENS_RECORD = 1 };

// One buffer with four positions: its own start, the last separator, where the next search begins, and the
// end of what was read.
struct log_cutter {
    devnode *device;
    const lognode *node;
    bool told_empty; // of a separator that matches nothing
    char *fill;
    char *search;
    char *sep_start;
    char buffer[LOG_BUFFER_SIZE + 1];
};

} // namespace

// Of a check that the server configured as one of another kind: no separator, and no rules.
static constexpr lognode UNCONFIGURED = {};

static void reset_positions(log_cutter *cutter) {
    cutter->fill = cutter->search = cutter->sep_start = cutter->buffer;
}

static char *unconsumed(const log_cutter *cutter) {
    return cutter->node->separatorInclusion == OPENS_RECORD ? cutter->sep_start : cutter->search;
}

static size_t remainder_of(const log_cutter *cutter) {
    return static_cast<size_t>(cutter->fill - unconsumed(cutter));
}

// Walks the text from `start` to `end` through the rules; the byte behind it is back in its place afterwards.
static void hand_on(const log_cutter *cutter, char *start, char *end) {
    char behind = *end;
    *end = '\0';
    log_entry_walk(start, cutter->device);
    *end = behind;
}

static void take_record(const log_cutter *cutter, const tn_match *separator) {
    uint32_t inclusion = cutter->node->separatorInclusion;
    char *start = inclusion == OPENS_RECORD ? cutter->sep_start : cutter->search;
    hand_on(cutter, start, cutter->search + (inclusion == CLOSES_RECORD ? separator->end : separator->start));
}

// False where a separator that matches nothing stands in the way.
static bool pass_separator(log_cutter *cutter, const tn_match *separator) {
    if (separator->end == 0) {
        if (!cutter->told_empty)
            agent_log(LOG_ERROR, "The log separator matches the empty string, which separates nothing");
        cutter->told_empty = true;
        return false;
    }
    if (separator->start != 0) take_record(cutter, separator);
    cutter->sep_start = cutter->search + separator->start;
    cutter->search += separator->end;
    return true;
}

static void cut_one_by_one(log_cutter *cutter) {
    const tn_regex *separator = &cutter->node->separator;
    int code;
    for (;;) {
        tn_match found;
        code = tn_regexec(separator, cutter->search, 1, &found);
        if (code != 0 || !pass_separator(cutter, &found)) break;
    }
    if (code == 0 || code == TN_REG_NOMATCH) return;
    char words[80];
    tn_regerror(code, separator, words, sizeof words);
    agent_log(LOG_WARNING, "Error finding log separator: %s", words);
}

// The last byte of this value, or absent.
static char *find_last(char *start, char *end, char byte) {
    while (end > start)
        if (*--end == byte) return end;
    return nullptr;
}

// Puts the search behind the separator at `place`.
static void search_behind(log_cutter *cutter, char *place) {
    cutter->sep_start = place;
    cutter->search = place + 1;
}

static void take_found(log_cutter *cutter, char *place) {
    if (char *before = find_last(cutter->search, place, *place)) search_behind(cutter, before);
    tn_match separator = {.start = place - cutter->search, .end = place - cutter->search + 1};
    take_record(cutter, &separator);
    search_behind(cutter, place);
}

// Hands on only the records that a rule may report, without a look at each of the others. False where they
// have to be looked at one by one.
static bool cut_many(log_cutter *cutter) {
    char separator = cutter->node->separator.literal;
    if (separator == '\0' || log_shows(LOG_TRACE)) return false;
    char *start = cutter->search;
    if (memchr(start, '\0', static_cast<size_t>(cutter->fill - start)) != nullptr) return false;
    char *last = find_last(start, cutter->fill, separator);
    if (last == nullptr) return true;
    uint16_t places[LOG_BUFFER_SIZE / 2 + RUN_SLACK];
    uint32_t count =
        find_reported_records(cutter->device->lognode, start, last + 1, cutter->sep_start != start, places);
    if (count == RECORDS_NOT_KNOWN) return false;
    for (uint32_t i = 0; i < count; i++)
        take_found(cutter, start + places[i]);
    search_behind(cutter, last);
    return true;
}

static void cut_chunk(log_cutter *cutter) {
    if (!cut_many(cutter)) cut_one_by_one(cutter);
}

// Makes room in a full buffer: what a separator has closed goes, and a record that fills it all is split.
static void make_room(log_cutter *cutter) {
    if (cutter->fill != cutter->buffer + LOG_BUFFER_SIZE) return;
    ptrdiff_t distance = cutter->sep_start - cutter->buffer;
    if (distance != 0) {
        memmove(cutter->buffer, cutter->sep_start, static_cast<size_t>(cutter->fill - cutter->sep_start));
        cutter->fill -= distance;
        cutter->search -= distance;
        cutter->sep_start = cutter->buffer;
        return;
    }
    agent_log(LOG_TRACE, "Buffer overflow: %s", unconsumed(cutter));
    log_entry_walk(unconsumed(cutter), cutter->device);
    reset_positions(cutter);
}

static size_t read_chunk(log_cutter *cutter, followed_file *log) {
    size_t room = static_cast<size_t>(cutter->buffer + LOG_BUFFER_SIZE - cutter->fill);
    size_t got = read_followed(log, cutter->fill, room);
    cutter->fill += got;
    *cutter->fill = '\0';
    return got;
}

static const char *end_of_file(log_cutter *cutter, followed_file *log, bool still_growing) {
    if (still_growing) return nullptr;
    char *rest = unconsumed(cutter);
    agent_log(LOG_TRACE, "End of file: %s", rest);
    if (*rest != '\0') log_entry_walk(rest, cutter->device);
    reset_positions(cutter);
    return log->error != 0 ? format_error("Error during read of log file: %s", error_text(log->error))
                           : nullptr;
}

const char *cut_log_records(followed_file *log, devnode *device, bool still_growing, size_t *out_remainder) {
    log_cutter cutter; // too large to be cleared for nothing
    cutter.device = device;
    cutter.node = device->lognode != nullptr ? device->lognode : &UNCONFIGURED;
    cutter.told_empty = false;
    reset_positions(&cutter);
    log->error = 0;
    const char *failure = nullptr;
    for (;;) {
        if (read_chunk(&cutter, log) == 0) {
            failure = end_of_file(&cutter, log, still_growing);
            break;
        }
        cut_chunk(&cutter);
        if (checkin_overdue_hook != nullptr && checkin_overdue_hook()) break;
        make_room(&cutter);
    }
    *out_remainder = remainder_of(&cutter);
    return failure;
}
