// The message of an event log record: the text that its source has registered for its number, with the
// record's inserts. A failure to find it is told in its place, in angle brackets.
//
// Files of messages are loaded for every record anew, so that their owner can replace them at any time.
#pragma once

#include "logcheck/event_record.h"

#include <cstddef>

inline constexpr uint32_t MESSAGE_SIZE = 65'536;    // characters, the end included
inline constexpr uint32_t MESSAGE_VALUE_SIZE = 256; // bytes of what the registry holds for a source

// The text and what is needed on the way to it. Large, so not for the stack.
struct event_message {
    char value[MESSAGE_VALUE_SIZE + 1]; // the path of the source's key, then the names of its files
    char expanded[MESSAGE_VALUE_SIZE];
    char16_t formatted[MESSAGE_SIZE];
    char16_t resolved[MESSAGE_SIZE];
    char text[MESSAGE_SIZE];
};

// Finds the text. It is empty for a record that cannot be decoded: one of a source that has a ProviderGuid in
// the place of files, and one whose text no code page holds.
void find_event_message(const char *log_name, const char *source, const event_record *record,
                        event_message *message);

// Whether a list of names, cut at commas, names the source. Blanks behind a comma are skipped. The last name
// must be the whole source; each other one, also an empty one, stands for all sources that start with it.
bool is_skipped_event_source(const char *list, const char *source);

// Converts to ISO 8859-1. False, with an empty text, where that fails.
bool convert_event_text(const char16_t *text, char *out, uint32_t size);
