// The agent's side of the wire for tests of the server: bytes out, trees of values in. It shares nothing with
// the server's own codec, so that an error of one is not hidden by the same error of the other.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Identifiers as they go over the wire.
namespace wire {
inline const std::string client_wants = "\x60", server_offers = "\x61", negotiate_ack = "\x62",
                         negotiate_nack = "\x63", key_parameters = "\x64", sporadic_number = "\x65",
                         auth_challenge = "\x66", auth_response = "\x67", configure_req = "\x68",
                         configure_resp = "\x69", checkin_req = "\x6A", checkin_resp = "\x6B",
                         upgrade_req = "\x6C", upgrade_resp = "\x6D", time_req = "\x77", time_resp = "\x78",
                         downtime_req = "\x7E", downtime_resp = "\x7F\x1F", scan_req = "\x7F\x20",
                         scan_resp = "\x7F\x21", private_key = "\xA1", sequence = "\x30", integer = "\x02",
                         text = "\x04", null = "\x05", real = "\x09", enumerated = "\x0A", boolean = "\x01",
                         continuous = "\xA0", enumeration = "\xA1", real_continuous = "\xA3";
} // namespace wire

// A value with a definite length.
std::string encode(const std::string &identifier, const std::string &content);
// A record or list: the indefinite form around whole values.
std::string encode_record(const std::string &identifier, const std::string &content);
std::string encode_integer(int64_t value);
std::string encode_text(const std::string &value);
std::string encode_bool(bool value);
std::string encode_real(double value);
std::string encode_null();
std::string encode_enumerated(uint32_t value);

// A value that was read, with what it holds.
struct wire_value {
    std::string identifier;
    std::string content; // of a definite value
    bool indefinite = false;
    std::vector<wire_value> parts; // of an indefinite one

    const wire_value &operator[](size_t index) const { return parts.at(index); }
    int64_t integer() const;
    bool truth() const { return content == "\x01"; }
    double real() const; // of a REAL in decimal form
    bool is_null() const { return identifier == wire::null && content.empty(); }
};

// Reads one value. `read_bytes` gives exactly as many bytes as it is asked for, or throws.
wire_value read_wire_value(const std::function<std::string(size_t)> &read_bytes);
// The value at the start of a text; throws std::out_of_range when it is not whole.
wire_value parse_wire_value(const std::string &bytes);
