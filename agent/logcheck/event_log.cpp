#include "logcheck/event_log.h"

#include "logcheck/event_line.h"
#include "logcheck/event_log_ops.h"
#include "logcheck/log_rules.h"
#include "logcheck/log_state.h"
#include "platform/agent_log.h"
#include "platform/errors.h"

#include <algorithm>
#include <cinttypes>

const event_log_ops *event_log_host;

namespace {

constexpr uint32_t FIRST_BUFFER_SIZE = 256;

enum : uint32_t { HANDLE_EOF = 38, INSUFFICIENT_BUFFER = 122 }; // system error codes

enum read_end { LOG_ENDED, BUFFER_TOO_SMALL };

// The records of a log, by their numbers.
struct record_range {
    int64_t oldest;
    int64_t end; // behind the newest
};

// A check under way.
struct event_reader {
    devnode *device;
    event_log *log;
    event_texts *texts;
    int64_t end;      // where the log ended when the check began
    int64_t position; // the number of the next record
    uint32_t flags;
    uint32_t read; // bytes, as the host told last
    uint32_t needed;
    uint32_t lines;
    uint32_t matched;
};

} // namespace

static void close_log(event_log *log) {
    event_log_host->CloseEventLog(log);
}

using event_log_guard = guard<event_log, close_log>;
using buffer_guard = guard<uint8_t, heap_free>;
using event_texts_guard = guard<event_texts, heap_free>;

static bool find_range(event_log *log, record_range *out) {
    uint32_t oldest = 0;
    uint32_t count = 0;
    if (!event_log_host->GetOldestEventLogRecord(log, &oldest)) return false;
    if (!event_log_host->GetNumberOfEventLogRecords(log, &count)) return false;
    agent_log(LOG_TRACE, "Oldest event: %d, number of events: %d", static_cast<int>(oldest),
              static_cast<int>(count));
    *out = {.oldest = oldest, .end = int64_t{oldest} + count};
    return true;
}

// The stored number counts as one of 32 bits.
static int64_t stored_position(const devnode *device, int64_t end) {
    int64_t stored = 0;
    if (!read_log_offset(device, &stored)) return end;
    return static_cast<int32_t>(static_cast<uint32_t>(stored));
}

// A log that was cleared has its numbers start anew, and one that is full loses its oldest records. Neither
// is told to anybody.
static int64_t read_position(int64_t offset, const record_range *range) {
    return offset > range->end || offset < range->oldest ? range->oldest : offset;
}

static void handle_record(event_reader *reader, const event_record *record) {
    reader->lines++;
    reader->position++;
    if (!make_event_line(reader->device->id, record, reader->texts)) {
        agent_log(LOG_TRACE, "* Did not run line through checker because we could not decode it");
        return;
    }
    agent_log(LOG_TRACE, "* Run line through checker");
    if (log_entry_walk(reader->texts->line, reader->device)) reader->matched++;
}

// False where the bytes are not all of records.
static bool handle_records(event_reader *reader, const uint8_t *bytes, uint32_t size) {
    event_record record;
    for (uint32_t at = 0; at < size; at += record.length) {
        if (!decode_event_record(bytes + at, size - at, &record)) {
            reader->position++;
            return false;
        }
        handle_record(reader, &record);
    }
    return true;
}

static void tell_read(const event_reader *reader, const uint8_t *buffer, uint32_t size) {
    agent_log(LOG_TRACE, "Invoking ReadEventLog(0x%p, 0x%04X, %" PRId64 ", 0x%p[%d], %d, 0x%p[%d], 0x%p[%d])",
              static_cast<const void *>(reader->log), static_cast<unsigned>(reader->flags), reader->position,
              static_cast<const void *>(buffer), static_cast<int>(size), static_cast<int>(size),
              static_cast<const void *>(&reader->read), static_cast<int>(reader->read),
              static_cast<const void *>(&reader->needed), static_cast<int>(reader->needed));
}

// False with the error where the read failed.
static bool read_once(event_reader *reader, uint8_t *buffer, uint32_t size, uint32_t *out_error) {
    reader->read = 0;
    reader->needed = 0;
    bool success =
        event_log_host->ReadEventLogW(reader->log, reader->flags, static_cast<uint32_t>(reader->position),
                                      buffer, size, &reader->read, &reader->needed);
    *out_error = success ? 0 : last_error();
    agent_log(LOG_TRACE, "read=%d, needed=%d", static_cast<int>(reader->read),
              static_cast<int>(reader->needed));
    if (!success) agent_log(LOG_TRACE, "Failed: %s", error_text(*out_error));
    return success;
}

static void tell_error(const char *error) {
    agent_log(LOG_ERROR, "Scan ended with error: %s", error);
}

// Reads and handles records with one buffer, as far as it goes.
static read_end read_with_buffer(event_reader *reader, uint8_t *buffer, uint32_t size) {
    uint32_t error = 0;
    uint32_t empty_reads = 0;
    tell_read(reader, buffer, size);
    while (read_once(reader, buffer, size, &error)) {
        if (reader->read != 0) {
            empty_reads = 0;
            reader->flags = EVENTLOG_SEQUENTIAL_READ | EVENTLOG_FORWARDS_READ;
            if (handle_records(reader, buffer, std::min(reader->read, size))) continue;
            tell_error("the host delivered a broken record");
            return LOG_ENDED;
        }
        if (++empty_reads < EMPTY_READ_LIMIT) continue;
        tell_error("the host delivers nothing");
        return LOG_ENDED;
    }
    if (error == INSUFFICIENT_BUFFER) return BUFFER_TOO_SMALL;
    if (error != HANDLE_EOF) tell_error(error_text(error));
    return LOG_ENDED;
}

static uint32_t larger_size(const event_reader *reader, uint32_t size) {
    agent_log(LOG_TRACE, "buf_size=%d, needed=%d", static_cast<int>(size), static_cast<int>(reader->needed));
    return std::max(2 * size, reader->needed);
}

static const char *read_records(event_reader *reader) {
    event_texts_guard texts(heap_new<event_texts>());
    if (texts == nullptr) return "Out of memory";
    reader->texts = texts.get();
    reader->flags = EVENTLOG_SEEK_READ | EVENTLOG_FORWARDS_READ;
    uint32_t size = FIRST_BUFFER_SIZE;
    for (;;) {
        if (size > READ_BUFFER_LIMIT) return "Out of memory";
        buffer_guard buffer(static_cast<uint8_t *>(heap_alloc(size)));
        if (buffer == nullptr) return "Out of memory";
        if (read_with_buffer(reader, buffer.get(), size) == LOG_ENDED) return nullptr;
        size = larger_size(reader, size);
        if (reader->position == reader->end) return nullptr;
    }
}

static const char *read_from(event_log *log, const record_range *range, devnode *device, log_state *state) {
    event_reader reader = {
        .device = device, .log = log, .end = range->end, .position = read_position(state->offset, range)};
    if (reader.position != reader.end)
        if (const char *failure = read_records(&reader)) return failure;
    state->offset = reader.position;
    agent_log(LOG_DETAIL, "Checked event log %s, %u lines of which %d matched", device->id,
              static_cast<unsigned>(reader.lines), static_cast<int>(reader.matched));
    return nullptr;
}

const char *read_event_log(devnode *device, bool first_check) {
    bool is_new = false;
    log_state *state = log_state_of(device, &is_new);
    if (event_log_host == nullptr)
        return format_error("Could not open event log: %s", "this host has no event logs");
    event_log_guard log(event_log_host->OpenEventLogA(device->id));
    uint32_t error = log == nullptr ? last_error() : 0;
    agent_log(LOG_TRACE, "OpenEventLog(NULL, \"%s\") = %p", device->id, static_cast<void *>(log.get()));
    if (log == nullptr) return format_error("Could not open event log: %s", error_text(error));
    record_range range;
    if (!find_range(log.get(), &range)) return format_error("Error reading event log: %s", last_error_text());
    if (first_check) state->offset = stored_position(device, range.end);
    return read_from(log.get(), &range, device, state);
}
