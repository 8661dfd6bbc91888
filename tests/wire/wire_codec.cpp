#include "wire/wire_codec.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace wire {

static void fail(const std::string &text) {
    throw violation{text};
}

static void put_tag(std::string *bytes, uint32_t tag) {
    uint32_t number = tag >> 3;
    auto top = static_cast<char>((tag & 7) << 5);
    if (number < 31) {
        *bytes += static_cast<char>(top | static_cast<char>(number));
        return;
    }
    *bytes += static_cast<char>(top | 31);
    std::string groups;
    for (; number != 0; number >>= 7)
        groups.insert(groups.begin(), static_cast<char>((number & 0x7F) | (groups.empty() ? 0 : 0x80)));
    *bytes += groups;
}

static void put_length(std::string *bytes, size_t length) {
    if (length < 0x80) {
        *bytes += static_cast<char>(length);
        return;
    }
    std::string magnitude = magnitude_of(length);
    *bytes += static_cast<char>(0x80 | magnitude.size());
    *bytes += magnitude;
}

static writer &put(writer &to, uint32_t tag, const std::string &content) {
    put_tag(&to.bytes, tag);
    put_length(&to.bytes, content.size());
    to.bytes += content;
    return to;
}

writer &writer::open(uint32_t tag) {
    put_tag(&bytes, tag);
    bytes += '\x80';
    return *this;
}

writer &writer::close() {
    bytes.append(2, '\0');
    return *this;
}

writer &writer::boolean(bool value) {
    return put(*this, BOOLEAN, std::string(1, value ? '\1' : '\0'));
}

// The shortest two's complement, nothing at all for 0.
static std::string integer_content(int64_t value) {
    std::string content;
    while (value != 0) {
        content.insert(content.begin(), static_cast<char>(value & 0xFF));
        bool negative = (value & 0x80) != 0;
        value >>= 8;
        if (value == -1 && negative) break;
        if (value == 0 && negative) content.insert(content.begin(), '\0');
    }
    return content;
}

writer &writer::integer(int64_t value) {
    return put(*this, INTEGER, integer_content(value));
}

writer &writer::octets(const std::string &text) {
    return put(*this, OCTETS, text);
}

writer &writer::nothing() {
    return put(*this, NOTHING, "");
}

writer &writer::real(double value) {
    if (value == 0.0) return put(*this, REAL, "");
    if (std::isinf(value)) return put(*this, REAL, value > 0 ? "\x40" : "\x41");
    char text[64];
    snprintf(text, sizeof text, "%e", value);
    return put(*this, REAL, std::string(1, '\0') + text);
}

writer &writer::enumerated(uint32_t value) {
    return put(*this, ENUMERATED, integer_content(value));
}

writer &writer::number(const std::string &magnitude) {
    return put(*this, INTEGER, trimmed(magnitude));
}

std::string with_definite_length(const std::string &record) {
    size_t start = 1;
    if ((record[0] & 31) == 31)
        while ((record[start++] & 0x80) != 0) {
        }
    std::string content = record.substr(start + 1, record.size() - start - 3);
    std::string bytes = record.substr(0, start);
    put_length(&bytes, content.size());
    return bytes + content;
}

uint8_t reader::byte() {
    return static_cast<uint8_t>(from.read(1)[0]);
}

uint32_t reader::tag() {
    uint8_t first = byte();
    uint32_t top = first >> 5;
    uint32_t number = first & 31;
    if (number == 31) {
        uint8_t next;
        number = 0;
        do {
            next = byte();
            number = number << 7 | (next & 0x7F);
        } while ((next & 0x80) != 0);
        if (number < 31) fail("a tag in the long form that fits the short one");
    }
    uint32_t code = number << 3 | top;
    if (code == 0 && byte() != 0) fail("an end of contents with a length");
    return code;
}

uint32_t reader::length() {
    uint8_t first = byte();
    if (first < 0x80) return first;
    if (first == 0x80) fail("an indefinite length on a primitive");
    if (first > 0x84) fail("a length of more than four bytes");
    uint32_t value = 0;
    for (int left = first & 0x7F; left > 0; left--)
        value = value << 8 | byte();
    if (value < 0x80 || magnitude_of(value).size() != (first & 0x7FU))
        fail("a length not in its shortest form");
    return value;
}

static void expect_tag(uint32_t got, uint32_t expected) {
    if (got != expected)
        fail("tag " + std::to_string(got) + " where " + std::to_string(expected) + " belongs");
}

void reader::opened() {
    if (byte() != 0x80) fail("a record of definite length");
}

void reader::open(uint32_t expected) {
    expect_tag(tag(), expected);
    opened();
}

void reader::close() {
    expect_tag(tag(), 0);
}

bool reader::boolean() {
    expect_tag(tag(), BOOLEAN);
    if (length() != 1) fail("a boolean that is not one byte");
    uint8_t value = byte();
    if (value > 1) fail("a boolean that is neither 0 nor 1");
    return value == 1;
}

int64_t reader::integer_behind_tag() {
    uint32_t size = length();
    if (size > 4) fail("an integer of more than four bytes");
    std::string content = from.read(size);
    int64_t value = size != 0 && (content[0] & 0x80) != 0 ? -1 : 0;
    for (char next : content)
        value = static_cast<int64_t>(static_cast<uint64_t>(value) << 8 | static_cast<unsigned char>(next));
    if (integer_content(value) != content) fail("an integer not in its shortest form");
    return value;
}

int64_t reader::integer(int64_t minimum, int64_t maximum) {
    expect_tag(tag(), INTEGER);
    int64_t value = integer_behind_tag();
    if (value < minimum || value > maximum) fail("an integer out of its range: " + std::to_string(value));
    return value;
}

std::string reader::octets_behind_tag(size_t limit) {
    uint32_t size = length();
    if (size > limit)
        fail("a text of " + std::to_string(size) + " bytes, the limit is " + std::to_string(limit));
    return from.read(size);
}

std::string reader::octets(size_t limit) {
    expect_tag(tag(), OCTETS);
    return octets_behind_tag(limit);
}

uint32_t reader::enumerated() {
    expect_tag(tag(), ENUMERATED);
    uint32_t size = length();
    if (size > 5) fail("an enumerated value of more than five bytes");
    std::string content = from.read(size);
    auto value = static_cast<uint32_t>(value_of(content));
    if (integer_content(value) != content) fail("an enumerated value not in its shortest form");
    return value;
}

std::string reader::number() {
    expect_tag(tag(), INTEGER);
    uint32_t size = length();
    if (size > 140) fail("a big number of " + std::to_string(size) + " bytes");
    std::string content = from.read(size);
    if (trimmed(content) != content) fail("a big number with leading zeros");
    return content;
}

double reader::real_behind_tag() {
    uint32_t size = length();
    if (size >= 60) fail("a real of 60 bytes or more");
    std::string content = from.read(size);
    if (content.empty()) return 0.0;
    if (content == "\x40") return INFINITY;
    if (content == "\x41") return -INFINITY;
    if (content == "\x60") return NAN;
    double value = atof(content.c_str() + 1);
    char text[64];
    snprintf(text, sizeof text, "%e", value);
    if (content != std::string(1, '\0') + text) fail("a real of another form");
    return value;
}

void reader::nothing_behind_tag() {
    if (length() != 0) fail("a null with a content");
}

std::optional<double> reader::hint() {
    uint32_t code = tag();
    if (code == REAL) return real_behind_tag();
    expect_tag(code, NOTHING);
    nothing_behind_tag();
    return {};
}

void reader::sequence(const std::function<void(uint32_t)> &element) {
    open(SEQUENCE);
    while (uint32_t code = tag())
        element(code);
}

} // namespace wire
