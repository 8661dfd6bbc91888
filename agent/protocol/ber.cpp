#include "protocol/ber.h"

#include "crypto/bignum.h"
#include "platform/heap.h"
#include "platform/text.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t MAX_LENGTH_BYTES = 4;
constexpr uint32_t MAX_TAG_BYTES = 4;
constexpr uint32_t FIRST_HIGH_TAG = 248; // codes from here on have the high-tag form
constexpr uint32_t SCRATCH = 128;
constexpr size_t REAL_CONTENT = 60;
constexpr size_t BIGNUM_CONTENT = 140;
constexpr uint32_t BIGNUM_READ_LIMIT = 16U << 20; // beyond any sound number, below what hurts the host

// First content byte of a real.
enum : unsigned char {
    REAL_DECIMAL = 0x00,
    REAL_PLUS_INFINITY = 0x40,
    REAL_MINUS_INFINITY = 0x41,
    REAL_NAN = 0x60
};

} // namespace

static const char *read_byte(io *stream, unsigned char *out) {
    return stream->read(stream, out, 1);
}

static const char *write_bytes(io *stream, const void *bytes, size_t count) {
    return stream->write(stream, bytes, count);
}

static const char *read_high_tag(io *stream, uint32_t low_bits, uint32_t *out_tag) {
    uint32_t code = low_bits;
    unsigned char byte;
    do {
        if (auto *failure = read_byte(stream, &byte)) return failure;
        uint32_t number = ((code >> 3) << 7) | (byte & 0x7FU);
        code = (number << 3) | low_bits;
    } while ((byte & 0x80U) != 0);
    *out_tag = code;
    return nullptr;
}

const char *read_tag(io *stream, uint32_t *out_tag) {
    *out_tag = 0;
    uint32_t code;
    do {
        unsigned char byte;
        if (auto *failure = read_byte(stream, &byte)) return failure;
        code = ((byte & 0x1FU) << 3) | (byte >> 5);
        if ((byte & 0x1FU) == 0x1FU) return read_high_tag(stream, byte >> 5, out_tag);
    } while (code == BE_FILLER);
    *out_tag = code;
    return nullptr;
}

const char *read_length(io *stream, uint32_t *out_length, bool *out_indefinite) {
    *out_length = 0;
    unsigned char first;
    if (auto *failure = read_byte(stream, &first)) return failure;
    *out_indefinite = first == 0x80;
    if (first <= 0x80) {
        *out_length = first & 0x7FU;
        return nullptr;
    }
    unsigned char bytes[MAX_LENGTH_BYTES];
    uint32_t count = first & 0x7FU;
    if (count > MAX_LENGTH_BYTES) return "data out of range in read_length";
    if (auto *failure = stream->read(stream, bytes, count)) return failure;
    for (uint32_t i = 0; i < count; i++)
        *out_length = (*out_length << 8) | bytes[i];
    return nullptr;
}

// Reads the tag unless the caller has it, and holds it against the expected one.
static const char *expect_tag(io *stream, uint32_t tag, uint32_t expected, const char *wrong) {
    if (tag == 0)
        if (auto *failure = read_tag(stream, &tag)) return failure;
    return tag == expected ? nullptr : wrong;
}

// Reads a definite length of at most `limit`.
static const char *read_limited_length(io *stream, uint32_t limit, uint32_t *out_length,
                                       const char *refused) {
    bool indefinite;
    if (auto *failure = read_length(stream, out_length, &indefinite)) return failure;
    return indefinite || *out_length > limit ? refused : nullptr;
}

static const char *discard(io *stream, uint32_t count) {
    unsigned char scratch[SCRATCH];
    for (; count >= SCRATCH; count -= SCRATCH)
        if (auto *failure = stream->read(stream, scratch, SCRATCH)) return failure;
    return stream->read(stream, scratch, count);
}

const char *read_list_start(io *stream, const char *wrong_tag, const char *not_indefinite) {
    if (auto *failure = expect_tag(stream, 0, BE_SEQ, wrong_tag)) return failure;
    uint32_t length;
    bool indefinite;
    if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
    return indefinite ? nullptr : not_indefinite;
}

const char *read_list_end(io *stream, const char *not_terminated) {
    uint32_t length;
    return read_limited_length(stream, 0, &length, not_terminated);
}

// Counts the open lists instead of recursing, so that a hostile peer's nesting costs no stack.
static const char *skip_open_lists(io *stream) {
    for (uint64_t open = 1; open > 0;) {
        uint32_t tag;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) {
            // The words are those of the device lists; they stay.
            if (auto *failure = read_list_end(stream, "List not terminated correctly in read_devnode_list"))
                return failure;
            open--;
            continue;
        }
        uint32_t length;
        bool indefinite;
        if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
        if (indefinite)
            open++;
        else if (auto *failure = discard(stream, length))
            return failure;
    }
    return nullptr;
}

const char *skip_value(io *stream, uint32_t tag) {
    if (tag == 0)
        if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag == 0) return "skip_value encountered end of list";
    uint32_t length;
    bool indefinite;
    if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
    return indefinite ? skip_open_lists(stream) : discard(stream, length);
}

const char *skip_to_eol(io *stream) {
    for (;;) {
        uint32_t tag;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) return read_list_end(stream, "List not terminated correctly in skip_to_eol");
        if (auto *failure = skip_value(stream, tag)) return failure;
    }
}

const char *write_tag(io *stream, uint32_t tag) {
    unsigned char bytes[1 + MAX_TAG_BYTES];
    if (tag < FIRST_HIGH_TAG) {
        bytes[0] = static_cast<unsigned char>((tag << 5) | (tag >> 3));
        return write_bytes(stream, bytes, 1);
    }
    bytes[0] = static_cast<unsigned char>((tag << 5) | 0x1FU);
    uint32_t number = tag >> 3;
    size_t groups = 1;
    while (groups < MAX_TAG_BYTES && (number >> (7 * groups)) != 0)
        groups++;
    for (size_t i = 0; i < groups; i++) {
        uint32_t group = (number >> (7 * (groups - 1 - i))) & 0x7FU;
        bytes[1 + i] = static_cast<unsigned char>(i + 1 < groups ? group | 0x80U : group);
    }
    return write_bytes(stream, bytes, 1 + groups);
}

const char *write_length(io *stream, int32_t length) {
    auto value = static_cast<uint32_t>(length);
    unsigned char bytes[1 + MAX_LENGTH_BYTES];
    if (value <= 127) {
        bytes[0] = static_cast<unsigned char>(value);
        return write_bytes(stream, bytes, 1);
    }
    size_t count = 1;
    while (count < MAX_LENGTH_BYTES && (value >> (8 * count)) != 0)
        count++;
    bytes[0] = static_cast<unsigned char>(0x80U | count);
    for (size_t i = 0; i < count; i++)
        bytes[1 + i] = static_cast<unsigned char>(value >> (8 * (count - 1 - i)));
    return write_bytes(stream, bytes, 1 + count);
}

const char *write_indefinite(io *stream) {
    return write_bytes(stream, "\x80", 1);
}

const char *write_seq_begin(io *stream) {
    return write_bytes(stream, "\x30\x80", 2);
}

const char *write_eoc(io *stream) {
    return write_bytes(stream, "\x00\x00", 2);
}

const char *read_null(io *stream, uint32_t tag) {
    if (auto *failure = expect_tag(stream, tag, BE_NULL, "Wrong tag, expected BE_NULL")) return failure;
    uint32_t length;
    return read_limited_length(stream, 0, &length, "Null object contains data of non-zero length");
}

const char *write_null(io *stream) {
    return write_bytes(stream, "\x05\x00", 2);
}

const char *read_signed_int(io *stream, int32_t minimum, int32_t maximum, int32_t *out, uint32_t tag) {
    static constexpr const char *refused = "data out of range in read_signed_int";
    if (auto *failure = expect_tag(stream, tag, BE_INTEGER, "Wrong tag, expected BE_INTEGER")) return failure;
    unsigned char bytes[4];
    uint32_t length;
    if (auto *failure = read_limited_length(stream, sizeof bytes, &length, refused)) return failure;
    if (auto *failure = stream->read(stream, bytes, length)) return failure;
    uint32_t value = length > 0 && (bytes[0] & 0x80U) != 0 ? 0xFFFFFFFFU : 0;
    for (uint32_t i = 0; i < length; i++)
        value = (value << 8) | bytes[i];
    *out = static_cast<int32_t>(value);
    return *out < minimum || *out > maximum ? refused : nullptr;
}

static size_t signed_size(int32_t value) {
    if (value == 0) return 0; // not the single zero byte of X.690
    if (value >= -128 && value <= 127) return 1;
    if (value >= -32768 && value <= 32767) return 2;
    return value >= -8388608 && value <= 8388607 ? 3 : 4;
}

static const char *write_content(io *stream, uint64_t value, size_t size) {
    unsigned char bytes[8];
    for (size_t i = 0; i < size; i++)
        bytes[i] = static_cast<unsigned char>(value >> (8 * (size - 1 - i)));
    if (auto *failure = write_length(stream, static_cast<int32_t>(size))) return failure;
    return size > 0 ? write_bytes(stream, bytes, size) : nullptr;
}

const char *write_signed_int(io *stream, int32_t minimum, int32_t maximum, int32_t value) {
    if (value < minimum || value > maximum) return "data out of range in write_signed_int";
    if (auto *failure = write_bytes(stream, "\x02", 1)) return failure;
    return write_content(stream, static_cast<uint32_t>(value), signed_size(value));
}

// The content comes in growing pieces: a claimed length costs no memory before its bytes have come.
static const char *read_content(io *stream, uint32_t length, const char *no_memory, text_guard *out) {
    constexpr uint32_t first_piece = 64 * 1024;
    uint32_t capacity = length < first_piece ? length : first_piece;
    out->reset(static_cast<char *>(heap_alloc(size_t{capacity} + 1)));
    for (uint32_t have = 0;;) {
        if (*out == nullptr) return no_memory;
        if (auto *failure = stream->read(stream, out->get() + have, capacity - have)) return failure;
        have = capacity;
        if (have == length) return nullptr;
        capacity = length - have < have ? length : 2 * have;
        text_guard larger(static_cast<char *>(heap_alloc(size_t{capacity} + 1)));
        if (larger != nullptr) memcpy(larger.get(), out->get(), have);
        *out = std::move(larger);
    }
}

const char *read_bignum(io *stream, bignum **out, uint32_t tag) {
    static constexpr const char *no_memory = "Out of memory in read_bignum";
    if (auto *failure = expect_tag(stream, tag, BE_INTEGER, "Wrong tag, expected BE_INTEGER")) return failure;
    uint32_t length;
    if (auto *failure = read_limited_length(stream, UINT32_MAX, &length, "data out of range in read_bignum"))
        return failure;
    if (length > BIGNUM_READ_LIMIT) return no_memory;
    text_guard content;
    if (auto *failure = read_content(stream, length, no_memory, &content)) return failure;
    bignum_guard number(bn_new(0, (uint64_t{length} + 3) / 4));
    if (number == nullptr) return no_memory;
    if (auto *failure = bn_set_data(number.get(), content.get(), length)) return failure;
    *out = number.release();
    return nullptr;
}

const char *write_bignum(io *stream, const bignum *number) {
    unsigned char bytes[BIGNUM_CONTENT];
    size_t size = sizeof bytes;
    if (auto *failure = bn_get_data(number, bytes, &size)) return failure;
    if (auto *failure = write_bytes(stream, "\x02", 1)) return failure;
    if (auto *failure = write_length(stream, static_cast<int32_t>(size))) return failure;
    return size > 0 ? write_bytes(stream, bytes, size) : nullptr;
}

const char *read_bool(io *stream, int32_t *out, uint32_t tag) {
    static constexpr const char *refused = "data out of range in read_bool";
    if (auto *failure = expect_tag(stream, tag, BE_BOOLEAN, "Wrong tag, expected BE_BOOLEAN")) return failure;
    uint32_t length;
    if (auto *failure = read_limited_length(stream, 1, &length, refused)) return failure;
    if (length == 0) return refused;
    unsigned char byte;
    if (auto *failure = read_byte(stream, &byte)) return failure;
    *out = byte != 0;
    return nullptr;
}

const char *write_bool(io *stream, int32_t value) {
    return write_bytes(stream, value != 0 ? "\x01\x01\x01" : "\x01\x01\x00", 3);
}

static const char *decode_real(const char *content, double *out) {
    switch (static_cast<unsigned char>(content[0])) {
    case REAL_DECIMAL:
        *out = strtod(content + 1, nullptr); // atof knows no NaN on every host
        // Zero has a form of its own. A NaN passes.
        return *out == 0.0 ? "Zero/non-zero real mismatch" : nullptr;
    case REAL_PLUS_INFINITY:
        *out = HUGE_VAL;
        return nullptr;
    case REAL_MINUS_INFINITY:
        *out = -HUGE_VAL;
        return nullptr;
    case REAL_NAN:
        *out = 0.0;
        return nullptr;
    default:
        return "Unsupported real number format revceived";
    }
}

const char *read_real(io *stream, double *out, uint32_t tag) {
    if (auto *failure = expect_tag(stream, tag, BE_REAL, "Wrong tag, expected BE_REAL")) return failure;
    char content[REAL_CONTENT];
    uint32_t length;
    // The words are those of the boolean's reader; they stay.
    if (auto *failure =
            read_limited_length(stream, sizeof content - 1, &length, "data out of range in read_bool"))
        return failure;
    if (auto *failure = stream->read(stream, content, length)) return failure;
    content[length] = '\0';
    if (length > 0) return decode_real(content, out);
    *out = 0.0;
    return nullptr;
}

static const char *write_real_content(io *stream, const char *content, size_t size) {
    if (auto *failure = write_length(stream, static_cast<int32_t>(size))) return failure;
    return size > 0 ? write_bytes(stream, content, size) : nullptr;
}

const char *write_real(io *stream, double value) {
    if (auto *failure = write_bytes(stream, "\x09", 1)) return failure;
    if (is_nan(value)) return write_real_content(stream, "\x60", 1);
    if (!is_finite(value)) return write_real_content(stream, value > 0 ? "\x40" : "\x41", 1);
    if (value == 0.0) return write_real_content(stream, "", 0);
    char content[REAL_CONTENT];
    content[0] = REAL_DECIMAL;
    int length = snprintf(content + 1, sizeof content - 1, "%e", value);
    if (length > static_cast<int>(sizeof content) - 2)
        return "String representation of double larger than buffer";
    return write_real_content(stream, content, static_cast<size_t>(length) + 1);
}

const char *read_string(io *stream, uint32_t limit, char **out, uint32_t tag) {
    if (auto *failure = expect_tag(stream, tag, BE_STRING, "Wrong tag, expected BE_STRING")) return failure;
    uint32_t length;
    if (auto *failure = read_limited_length(stream, limit, &length, "data out of range in read_string"))
        return failure;
    text_guard text(static_cast<char *>(heap_alloc(size_t{length} + 1)));
    if (text == nullptr) return "Unable to allocate data in read_string";
    if (auto *failure = stream->read(stream, text.get(), length)) return failure;
    *out = text.release();
    return nullptr;
}

const char *write_string(io *stream, uint32_t limit, const char *text) {
    if (auto *failure = write_bytes(stream, "\x04", 1)) return failure;
    if (text == nullptr) return write_bytes(stream, "\x00", 1);
    size_t length = strlen(text);
    if (length > limit) return "data out of range in write_string";
    if (auto *failure = write_length(stream, static_cast<int32_t>(length))) return failure;
    return length > 0 ? write_bytes(stream, text, length) : nullptr;
}

const char *read_enumerated(io *stream, uint32_t *out, uint32_t expected, uint32_t tag) {
    static constexpr const char *refused = "data out of range in read_enumerated";
    if (auto *failure = expect_tag(stream, tag, expected, "Wrong tag, expected another type")) return failure;
    unsigned char bytes[5];
    uint32_t length;
    if (auto *failure = read_limited_length(stream, sizeof bytes, &length, refused)) return failure;
    if (auto *failure = stream->read(stream, bytes, length)) return failure;
    if (length > 0 && ((bytes[0] & 0x80U) != 0 || (length == sizeof bytes && bytes[0] != 0))) return refused;
    *out = 0;
    for (uint32_t i = 0; i < length; i++)
        *out = (*out << 8) | bytes[i];
    return nullptr;
}

static size_t unsigned_size(uint32_t value) {
    if (value >= 2147483648U) return 5; // a leading zero where the top bit is set
    if (value > 8388607) return 4;
    if (value > 32767) return 3;
    if (value > 127) return 2;
    return value != 0 ? 1 : 0;
}

const char *write_enumerated(io *stream, uint32_t value, uint32_t tag) {
    if (auto *failure = write_tag(stream, tag)) return failure;
    return write_content(stream, value, unsigned_size(value));
}
