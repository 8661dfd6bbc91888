// Basic Encoding Rules (ITU-T X.690) as this protocol has them: primitives that are read and written one at a
// time, with no framing around a message.
//
// Departures from X.690, which are the wire format: zero has an empty content; the byte 0x19 may stand as a
// filler wherever a tag is expected; a real is a decimal text behind an octet 0; a big number is an unsigned
// magnitude under the INTEGER tag.
//
// A tag code is (number << 3) | (class << 1) | constructed, class 0 universal, 1 application, 2 context, 3
// private. A reader that takes `tag` is given a tag code that its caller has read already, or 0 to read it
// itself. Every function returns absent or a failure text, behind which the position in the stream is
// undefined.
#pragma once

#include "platform/io.h"

#include <cstdint>

struct bignum;

enum : uint32_t {
    BE_EOC = 0,
    BE_BOOLEAN = 8,
    BE_INTEGER = 16,
    BE_STRING = 32,
    BE_NULL = 40,
    BE_REAL = 72,
    BE_ENUMERATED = 80,
    BE_SEQ = 129,
    BE_FILLER = 200,
};

[[nodiscard]] const char *read_tag(io *stream, uint32_t *out_tag);
[[nodiscard]] const char *read_length(io *stream, uint32_t *out_length, bool *out_indefinite);

// Discards one whole value.
[[nodiscard]] const char *skip_value(io *stream, uint32_t tag);

// Discards all values up to and with the end of the current list: what a newer peer appends to a record is
// ignored.
[[nodiscard]] const char *skip_to_eol(io *stream);

// The start of a list: the tag of a sequence and the indefinite length, each with the caller's text for
// anything else.
[[nodiscard]] const char *read_list_start(io *stream, const char *wrong_tag, const char *not_indefinite);

// What stands behind the tag 0 of a list's end: a definite length of 0.
[[nodiscard]] const char *read_list_end(io *stream, const char *not_terminated);

[[nodiscard]] const char *write_tag(io *stream, uint32_t tag);
[[nodiscard]] const char *write_length(io *stream, int32_t length);
[[nodiscard]] const char *write_indefinite(io *stream);
[[nodiscard]] const char *write_seq_begin(io *stream);
[[nodiscard]] const char *write_eoc(io *stream);

[[nodiscard]] const char *read_null(io *stream, uint32_t tag);
[[nodiscard]] const char *write_null(io *stream);

// The refused value stays in `*out` when it lies outside the range.
[[nodiscard]] const char *read_signed_int(io *stream, int32_t minimum, int32_t maximum, int32_t *out,
                                          uint32_t tag);
[[nodiscard]] const char *write_signed_int(io *stream, int32_t minimum, int32_t maximum, int32_t value);

// The caller frees the number. A writer refuses more than 35 limbs.
[[nodiscard]] const char *read_bignum(io *stream, bignum **out, uint32_t tag);
[[nodiscard]] const char *write_bignum(io *stream, const bignum *number);

[[nodiscard]] const char *read_bool(io *stream, int32_t *out, uint32_t tag);
[[nodiscard]] const char *write_bool(io *stream, int32_t value);

[[nodiscard]] const char *read_real(io *stream, double *out, uint32_t tag);
[[nodiscard]] const char *write_real(io *stream, double value);

// At most `limit` bytes, without the terminator. The caller frees what is read. An absent text goes as an
// empty one.
[[nodiscard]] const char *read_string(io *stream, uint32_t limit, char **out, uint32_t tag);
[[nodiscard]] const char *write_string(io *stream, uint32_t limit, const char *text);

// An unsigned value under the tag that the caller expects.
[[nodiscard]] const char *read_enumerated(io *stream, uint32_t *out, uint32_t expected, uint32_t tag);
[[nodiscard]] const char *write_enumerated(io *stream, uint32_t value, uint32_t tag);
