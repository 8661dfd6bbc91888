#include "protocol/wire.h"

#include "fakes/hex.h"

#include <algorithm>

static std::string big_endian(uint64_t value, size_t size) {
    std::string result;
    for (size_t i = size; i > 0; i--)
        result.push_back(static_cast<char>(value >> (8 * (i - 1)) & 255));
    return result;
}

static std::string length_bytes(size_t length) {
    if (length < 128) return std::string(1, static_cast<char>(length));
    size_t size = 1;
    while (length >> (8 * size) != 0)
        size++;
    return std::string(1, static_cast<char>(128 + size)) + big_endian(length, size);
}

std::string wire_value(const std::string &identifier, const std::string &content) {
    return bytes(identifier) + length_bytes(content.size()) + content;
}

// The shortest two's complement, nothing for zero.
static std::string signed_content(int64_t value) {
    for (size_t size = 0; size < 8; size++) {
        int64_t half = size == 0 ? 0 : int64_t{1} << (8 * size - 1);
        if (value >= -half && value <= std::max<int64_t>(half - 1, 0))
            return big_endian(static_cast<uint64_t>(value), size);
    }
    return big_endian(static_cast<uint64_t>(value), 8);
}

std::string wire_integer(int64_t value) {
    return wire_value("02", signed_content(value));
}

std::string wire_enumerated(uint32_t value) {
    return wire_value("0A", signed_content(value));
}

std::string wire_bool(bool value) {
    return wire_value("01", std::string(1, value ? '\1' : '\0'));
}

std::string wire_null() {
    return wire_value("05", "");
}

std::string wire_text(const std::string &text) {
    return wire_value("04", text);
}

std::string wire_real(const std::string &decimal) {
    return wire_value("09", decimal.empty() ? "" : std::string(1, '\0') + decimal);
}

std::string wire_number(const std::string &magnitude) {
    return wire_value("02", magnitude);
}

std::string wire_open(const std::string &identifier, const std::string &fields) {
    return bytes(identifier + " 80") + fields;
}

std::string wire_record(const std::string &identifier, const std::string &fields) {
    return wire_open(identifier, fields) + WIRE_END;
}

std::string wire_list(const std::string &elements) {
    return wire_record("30", elements);
}

// Taking apart.

static unsigned char take_byte(std::string *bytes) {
    if (bytes->empty()) throw wire_error("the bytes end within a value");
    auto byte = static_cast<unsigned char>(bytes->front());
    bytes->erase(0, 1);
    return byte;
}

static std::string take_bytes(std::string *bytes, size_t count) {
    if (bytes->size() < count) throw wire_error("the bytes end within a value");
    std::string taken = bytes->substr(0, count);
    bytes->erase(0, count);
    return taken;
}

static std::string take_identifier(std::string *bytes) {
    std::string taken(1, static_cast<char>(take_byte(bytes)));
    if ((taken[0] & 0x1F) == 0x1F) {
        do
            taken.push_back(static_cast<char>(take_byte(bytes)));
        while ((taken.back() & 0x80) != 0);
        if (taken[1] == '\x80' || (taken.size() == 2 && taken[1] < 31)) throw wire_error("a long identifier");
    }
    return hex(taken);
}

static bool is_constructed(const std::string &identifier) {
    return (bytes(identifier)[0] & 0x20) != 0;
}

static size_t take_length(std::string *bytes) {
    size_t first = take_byte(bytes);
    if (first < 128) return first;
    if (first == 128 || first > 132) throw wire_error("a length of no known form");
    size_t length = 0;
    for (size_t i = 0; i < first - 128; i++)
        length = length << 8 | take_byte(bytes);
    if (length_bytes(length).size() != first - 128 + 1) throw wire_error("a long length");
    return length;
}

static void take_parts(std::string *bytes, wire_node *node) {
    if (take_byte(bytes) != 0x80) throw wire_error("a record of definite length");
    while (!bytes->empty() && bytes->front() != '\0')
        node->parts.push_back(take_wire_node(bytes));
    if (take_bytes(bytes, 2) != WIRE_END) throw wire_error("a bad end of a list");
}

static void check_primitive(const wire_node &node) {
    const std::string &content = node.content;
    if (node.identifier == "0A" && content != signed_content(node.integer()))
        throw wire_error("an enumerated value that is too long");
    // Of an integer, or of a magnitude, which may begin with all ones.
    if (node.identifier == "02" && !content.empty() && content[0] == '\0' &&
        (content.size() == 1 || (content[1] & 0x80) == 0))
        throw wire_error("an integer that is too long");
    if (node.identifier == "01" && content != bytes("00") && content != bytes("01"))
        throw wire_error("a boolean of no known form");
    if (node.identifier == "05" && !content.empty()) throw wire_error("a null with content");
    if (node.identifier == "19") throw wire_error("a filler within a message");
}

wire_node take_wire_node(std::string *bytes) {
    wire_node node = {.identifier = take_identifier(bytes), .content = "", .parts = {}};
    if (is_constructed(node.identifier)) {
        take_parts(bytes, &node);
        return node;
    }
    node.content = take_bytes(bytes, take_length(bytes));
    check_primitive(node);
    return node;
}

bool wire_node::is_record() const {
    return is_constructed(identifier);
}

int64_t wire_node::integer() const {
    if (content.size() > 8) throw wire_error("a number of more than 64 bits");
    int64_t value = !content.empty() && (content[0] & 0x80) != 0 ? -1 : 0;
    for (char c : content)
        value = value * 256 + static_cast<unsigned char>(c);
    return value;
}

bool wire_node::truth() const {
    return content != bytes("00");
}

static std::string record_words(const wire_node &node) {
    std::string words = (node.identifier == "30" ? "" : node.identifier) + "{";
    for (const wire_node &part : node.parts)
        words += (&part == &node.parts.front() ? "" : " ") + part.words();
    return words + "}";
}

// An integer of up to four bytes is a number; a longer one is told by its bytes.
static std::string integer_words(const wire_node &node) {
    return node.content.size() <= 4 ? std::to_string(node.integer()) : "0x" + hex(node.content);
}

static std::string real_words(const std::string &content) {
    if (content.empty()) return "real 0";
    return "real " + (content[0] == '\0' ? content.substr(1) : hex(content));
}

std::string wire_node::words() const {
    if (is_record()) return record_words(*this);
    if (identifier == "01") return truth() ? "true" : "false";
    if (identifier == "02") return integer_words(*this);
    if (identifier == "04") return "\"" + content + "\"";
    if (identifier == "05") return "null";
    if (identifier == "09") return real_words(content);
    if (identifier == "0A") return "#" + std::to_string(integer());
    return identifier + "(" + hex(content) + ")";
}

std::string wire_words(const std::string &bytes) {
    std::string rest = bytes, words;
    while (!rest.empty())
        words += (words.empty() ? "" : " ") + take_wire_node(&rest).words();
    return words;
}
