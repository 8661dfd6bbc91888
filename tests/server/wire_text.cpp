#include "server/wire_text.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

static std::string big_endian(uint64_t value, size_t size) {
    std::string bytes;
    for (size_t i = size; i-- > 0;)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

static std::string encode_length(size_t length) {
    if (length < 0x80) return big_endian(length, 1);
    size_t size = length > 0xFFFFFF ? 4 : length > 0xFFFF ? 3 : length > 0xFF ? 2 : 1;
    return static_cast<char>(0x80 | size) + big_endian(length, size);
}

std::string encode(const std::string &identifier, const std::string &content) {
    return identifier + encode_length(content.size()) + content;
}

std::string encode_record(const std::string &identifier, const std::string &content) {
    return identifier + "\x80" + content + std::string(2, '\0');
}

std::string encode_integer(int64_t value) {
    if (value == 0) return encode(wire::integer, "");
    size_t size = 1;
    while (value < -(int64_t{1} << (8 * size - 1)) || value >= int64_t{1} << (8 * size - 1))
        size++;
    return encode(wire::integer, big_endian(static_cast<uint64_t>(value), size));
}

std::string encode_text(const std::string &value) {
    return encode(wire::text, value);
}

std::string encode_bool(bool value) {
    return encode(wire::boolean, std::string(1, value ? '\x01' : '\0'));
}

std::string encode_real(double value) {
    if (value == 0) return encode(wire::real, "");
    char text[64];
    snprintf(text, sizeof text, "%e", value);
    return encode(wire::real, std::string(1, '\0') + text);
}

std::string encode_null() {
    return encode(wire::null, "");
}

std::string encode_enumerated(uint32_t value) {
    size_t size = 0;
    while (size < 5 && value >> (8 * size) != 0)
        size++;
    bool top_bit = size > 0 && (value >> (8 * size - 1) & 1) != 0;
    return encode(wire::enumerated, big_endian(value, top_bit ? size + 1 : size));
}

int64_t wire_value::integer() const {
    int64_t value = !content.empty() && (content[0] & 0x80) != 0 ? -1 : 0;
    for (unsigned char byte : content)
        value = static_cast<int64_t>(static_cast<uint64_t>(value) << 8 | byte);
    return value;
}

double wire_value::real() const {
    return content.empty() ? 0 : strtod(content.c_str() + 1, nullptr);
}

using byte_reader = std::function<std::string(size_t)>;

static std::string read_identifier(const byte_reader &read_bytes) {
    std::string identifier = read_bytes(1);
    while (identifier == "\x19")
        identifier = read_bytes(1);
    if ((identifier[0] & 0x1F) != 0x1F) return identifier;
    do
        identifier += read_bytes(1);
    while ((identifier.back() & 0x80) != 0);
    return identifier;
}

static wire_value read_behind(const std::string &identifier, const byte_reader &read_bytes) {
    wire_value value = {.identifier = identifier};
    auto first = static_cast<unsigned char>(read_bytes(1)[0]);
    if (first == 0x80) {
        value.indefinite = true;
        for (std::string next = read_identifier(read_bytes);; next = read_identifier(read_bytes)) {
            wire_value part = read_behind(next, read_bytes);
            if (next == std::string(1, '\0')) return value;
            value.parts.push_back(part);
        }
    }
    size_t length = first;
    if (first > 0x80) {
        length = 0;
        for (unsigned char byte : read_bytes(first & 0x7F))
            length = length << 8 | byte;
    }
    value.content = read_bytes(length);
    return value;
}

wire_value read_wire_value(const byte_reader &read_bytes) {
    std::string identifier = read_identifier(read_bytes);
    return read_behind(identifier, read_bytes);
}

wire_value parse_wire_value(const std::string &bytes) {
    size_t at = 0;
    return read_wire_value([&](size_t count) {
        if (bytes.size() - at < count) throw std::out_of_range("the value is not whole");
        at += count;
        return bytes.substr(at - count, count);
    });
}
