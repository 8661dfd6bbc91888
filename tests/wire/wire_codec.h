// The server's half of the encoding, written apart from the agent's so that an error of one is not shared by
// the other.
//
// A message is built in memory and sent whole. What the agent sends is read without tolerance: whatever is
// not in the one form that an agent writes is a wire::violation.
#pragma once

#include "wire/wire_channel.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace wire {

// Identifiers as (number << 3) | (class << 1) | constructed, the class 0 universal, 1 application, 2 context.
constexpr uint32_t application(uint32_t number) {
    return (number << 3) | 3;
}
constexpr uint32_t context(uint32_t number) {
    return (number << 3) | 5;
}

enum : uint32_t {
    BOOLEAN = 1 << 3,
    INTEGER = 2 << 3,
    OCTETS = 4 << 3,
    NOTHING = 5 << 3,
    REAL = 9 << 3,
    ENUMERATED = 10 << 3,
    SEQUENCE = (16 << 3) | 1,
};

// The agent has sent what it must not send.
struct violation {
    std::string text;
};

// Builds one message.
struct writer {
    std::string bytes;

    writer &open(uint32_t tag); // indefinite length
    writer &close();
    writer &boolean(bool value);
    writer &integer(int64_t value);
    writer &octets(const std::string &text);
    writer &nothing();
    writer &real(double value);
    writer &enumerated(uint32_t value);
    writer &number(const std::string &magnitude); // big-endian bytes
};

// The same record with its outermost length in the definite form.
std::string with_definite_length(const std::string &record);

// Reads from a channel. `limit` is the most that an agent may send.
struct reader {
    channel &from;

    // The next identifier; 0 ends a list, and its two bytes have been read then.
    uint32_t tag();
    void open(uint32_t expected); // the identifier and an indefinite length
    void opened();                // the length alone, behind tag()
    void close();                 // the end of a list
    bool boolean();
    int64_t integer(int64_t minimum = INT32_MIN, int64_t maximum = INT32_MAX);
    std::string octets(size_t limit);
    std::string octets_behind_tag(size_t limit);
    uint32_t enumerated();
    std::string number(); // a magnitude without leading zeros
    double real_behind_tag();
    int64_t integer_behind_tag();
    void nothing_behind_tag();
    // A real or nothing.
    std::optional<double> hint();
    // A sequence whose elements `element` reads, each behind its tag.
    void sequence(const std::function<void(uint32_t tag)> &element);

private:
    uint8_t byte();
    uint32_t length();
};

} // namespace wire
