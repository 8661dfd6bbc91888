#include "server/record_reader.h"

#include "platform/errors.h"
#include "protocol/ber.h"
#include "server/limits.h"

#include <cstring>

void record_reader::fail(const char *text) {
    if (failed == nullptr) failed = text;
}

bool record_reader::take(size_t bytes) {
    if (failed == nullptr && !memory->take(bytes)) fail("too much data in one message");
    return failed == nullptr;
}

uint32_t record_reader::tag() {
    uint32_t tag = BE_EOC;
    if (failed == nullptr) failed = read_tag(stream, &tag);
    return failed == nullptr ? tag : BE_EOC;
}

void record_reader::open(uint32_t expected, const char *record, uint32_t tag) {
    if (tag == 0) tag = this->tag();
    uint32_t length = 0;
    bool indefinite = false;
    if (failed == nullptr && tag != expected)
        return fail(format_error("expected %s, got tag %u", record, tag));
    if (failed == nullptr) failed = read_length(stream, &length, &indefinite);
    if (failed == nullptr && !indefinite) fail(format_error("definite length in %s", record));
}

uint32_t record_reader::next() {
    uint32_t tag = this->tag();
    if (failed == nullptr && tag == BE_EOC) definite_length(0);
    return tag;
}

void record_reader::close() {
    while (uint32_t tag = next())
        skip(tag);
}

uint32_t record_reader::definite_length(uint32_t limit) {
    uint32_t length = 0;
    bool indefinite = false;
    if (failed == nullptr) failed = read_length(stream, &length, &indefinite);
    if (failed == nullptr && (indefinite || length > limit))
        fail(format_error("a length of %u where at most %u bytes may stand", length, limit));
    return failed == nullptr ? length : 0;
}

void record_reader::skip_content(uint32_t length) {
    char scratch[256];
    while (length > 0 && failed == nullptr) {
        size_t piece = length < sizeof scratch ? length : sizeof scratch;
        failed = stream->read(stream, scratch, piece);
        length -= static_cast<uint32_t>(piece);
    }
}

// Passes over a value of any kind. Nesting is counted, not followed by calls, so that no depth can harm the
// stack.
void record_reader::skip(uint32_t tag) {
    size_t depth = 0;
    do {
        uint32_t length = 0;
        bool indefinite = false;
        if (failed == nullptr) failed = read_length(stream, &length, &indefinite);
        if (tag == BE_EOC) {
            if (indefinite || length != 0) fail("a list is not ended properly");
            depth--;
        } else if (!indefinite) {
            skip_content(length);
        } else if (++depth > MAX_SKIP_DEPTH) {
            fail("values are nested too deeply");
        }
        if (depth > 0) tag = this->tag();
    } while (depth > 0 && failed == nullptr);
}

int32_t record_reader::integer(int32_t minimum, int32_t maximum, uint32_t tag) {
    int32_t value = 0;
    if (failed == nullptr) failed = read_signed_int(stream, minimum, maximum, &value, tag);
    return failed == nullptr ? value : 0;
}

bool record_reader::boolean() {
    int32_t value = 0;
    if (failed == nullptr) failed = read_bool(stream, &value, 0);
    return failed == nullptr && value != 0;
}

uint32_t record_reader::enumerated() {
    uint32_t value = 0;
    if (failed == nullptr) failed = read_enumerated(stream, &value, BE_ENUMERATED, 0);
    return failed == nullptr ? value : 0;
}

double record_reader::real(uint32_t tag) {
    double value = 0;
    if (failed == nullptr) failed = read_real(stream, &value, tag);
    return failed == nullptr ? value : 0;
}

void record_reader::null(uint32_t tag) {
    if (failed == nullptr) failed = read_null(stream, tag);
}

std::optional<double> record_reader::real_or_null() {
    uint32_t tag = this->tag();
    if (tag != BE_NULL) return real(tag);
    null(tag);
    return std::nullopt;
}

std::string record_reader::text(uint32_t limit, uint32_t tag) {
    if (tag == 0) tag = this->tag();
    if (failed == nullptr && tag != BE_STRING) fail(format_error("expected a text, got tag %u", tag));
    uint32_t length = definite_length(limit);
    if (!take(length)) return {};
    std::string text(length, '\0');
    if (auto *failure = stream->read(stream, text.data(), length)) fail(failure);
    if (failed == nullptr && memchr(text.data(), '\0', length) != nullptr) fail("a text with a zero byte");
    return failed == nullptr ? text : std::string();
}

bignum_guard record_reader::number() {
    uint32_t tag = this->tag();
    if (failed == nullptr && tag != BE_INTEGER) fail(format_error("expected a number, got tag %u", tag));
    uint32_t length = definite_length(NUMBER_LIMIT);
    if (failed != nullptr) return nullptr;
    unsigned char bytes[NUMBER_LIMIT];
    if ((failed = stream->read(stream, bytes, length)) != nullptr) return nullptr;
    bignum_guard number(bn_new(0, (length + 3) / 4));
    if (number == nullptr)
        fail("out of memory");
    else
        failed = bn_set_data(number.get(), bytes, length);
    return failed == nullptr ? std::move(number) : nullptr;
}
