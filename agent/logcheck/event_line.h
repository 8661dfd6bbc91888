// The line of text that stands for an event log record: type, source, category, number, user, computer and
// message, with colons between them that nothing escapes.
#pragma once

#include "logcheck/event_message.h"

inline constexpr uint32_t EVENT_LINE_SIZE = 65'536; // characters, the end included

// Working memory for one record. Large, so not for the stack.
struct event_texts {
    char source[1024];
    char computer[1024];
    char user[128];
    char domain[128]; // only asked for by the lookup
    event_message message;
    char line[EVENT_LINE_SIZE];
};

// Makes `line`, cut where it does not fit. False for a record that cannot be decoded, whose line no rule is
// to see.
bool make_event_line(const char *log_name, const event_record *record, event_texts *texts);
