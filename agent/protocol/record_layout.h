// What a record is made of, and the one reader and the one writer that all records share.
#pragma once

#include "platform/io.h"

#include <cstddef>
#include <cstdint>

enum field_kind { FIELD_INTEGER, FIELD_BOOLEAN, FIELD_ENUMERATED, FIELD_STRING, FIELD_BIGNUM };

struct record_field {
    const char *name; // absent behind the last field
    field_kind kind;
    size_t offset;
    int32_t minimum; // of an integer
    int32_t maximum; // of an integer, or the longest text
};

enum record_end { RECORD_OPEN, RECORD_CLOSED };

struct record_layout {
    const char *name;
    uint32_t tag;
    record_end end;
    const record_field *fields;
};

// Texts and numbers in `*record` are the caller's; after a failure there are none. `record` is cleared first.
[[nodiscard]] const char *read_record(io *stream, const record_layout &layout, void *record, size_t size,
                                      uint32_t tag);
[[nodiscard]] const char *write_record(io *stream, const record_layout &layout, const void *record);
