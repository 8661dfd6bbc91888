// One record of an event log, out of the bytes that a read delivered.
//
// Nothing outside the record is ever looked at, whatever its offsets and lengths say. A text without an end
// in the record is empty, and an identifier that does not lie in it as a whole is absent.
#pragma once

#include "platform/heap.h"

#include <cstdint>

inline constexpr uint32_t EVENT_RECORD_SIZE = 56; // of the fixed part
// Inserts that a message may name beyond those of its record. They are empty, so that it is formatted all the
// same.
inline constexpr uint32_t SPARE_INSERTS = 128;

struct event_record {
    const uint8_t *bytes; // borrowed, `length` of them
    uint32_t length;
    uint32_t event_id;
    uint16_t type;
    uint16_t category;
    uint16_t insert_count;
    uint32_t inserts_at; // offsets in the record, as they came
    uint32_t user_at;
    uint32_t user_size;
};

// Takes the record at the head of `size` bytes. False where its length is below that of the fixed part, or
// more than there is.
bool decode_event_record(const uint8_t *bytes, uint32_t size, event_record *out);

// Copies the text at `*at`, which is moved behind it: the source first, at EVENT_RECORD_SIZE, then the
// computer. A text that does not fit into `size` characters is empty.
void take_event_text(const event_record *record, uint32_t *at, char16_t *out, uint32_t size);

// The security identifier of the record's user, or absent.
const uint8_t *event_user(const event_record *record);

// A new array of the inserts in their order, with empty ones in the place of those that are missing and
// SPARE_INSERTS more behind. It holds the texts too, and is freed with heap_free. Absent when memory is out.
const char16_t **alloc_event_arguments(const event_record *record);

using event_arguments_guard = guard<const char16_t *, heap_free>;
