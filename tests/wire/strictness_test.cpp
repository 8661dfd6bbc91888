// What the scripted server takes from an agent, and what it calls a violation.

#include "wire/memory_pipe.h"
#include "wire/scripted_server.h"

#include <gtest/gtest.h>

namespace {

using wire::writer;

const std::string CLIENT_WANTS = std::string("\x60\x80\x02\x02\x02\x02\xA1\x80\x04\x01"
                                             "a\x04\x01"
                                             "b\x04\x00\x01\x01\x00\x01\x01\x00\x01\x01\x00\x00\x00\x00\x00",
                                             30);

// What the server makes of these bytes: how the connection ended.
std::string ending_of(const std::string &bytes) {
    scripted_server server;
    memory_pipe pipe;
    served_pipe served(server, pipe);
    pipe.agent->write(pipe.agent, bytes.data(), bytes.size());
    served.finish();
    return server.connections[0].ending;
}

std::string with(const std::string &bytes, size_t at, char byte) {
    std::string changed = bytes;
    changed[at] = byte;
    return changed;
}

} // namespace

TEST(strictness, takes_the_opening_of_an_agent) {
    EXPECT_TRUE(ending_of(CLIENT_WANTS).starts_with("closed by the agent"));
}

TEST(strictness, tells_a_close_in_the_midst_of_a_message) {
    EXPECT_EQ(ending_of(CLIENT_WANTS.substr(0, 20)), "broken: Peer closed connection unexpectedly");
}

TEST(strictness, refuses_another_message_first) {
    EXPECT_EQ(ending_of(with(CLIENT_WANTS, 0, '\x62')), "violation: message 19 where 3 belongs");
}

TEST(strictness, refuses_a_record_of_definite_length) {
    EXPECT_EQ(ending_of(with(CLIENT_WANTS, 1, '\x1C')), "violation: a record of definite length");
}

TEST(strictness, refuses_a_filler_on_the_plain_stream) {
    EXPECT_EQ(ending_of('\x19' + CLIENT_WANTS), "violation: message 200 where 3 belongs");
}

TEST(strictness, refuses_a_boolean_that_is_neither) {
    EXPECT_EQ(ending_of(with(CLIENT_WANTS, 18, '\xFF')), "violation: a boolean that is neither 0 nor 1");
}

TEST(strictness, refuses_an_integer_that_is_not_in_its_shortest_form) {
    std::string longer = CLIENT_WANTS;
    longer.replace(2, 4, std::string("\x02\x03\x00\x02\x02", 5));
    EXPECT_EQ(ending_of(longer), "violation: an integer not in its shortest form");
}

TEST(strictness, refuses_a_zero_with_a_content) {
    std::string longer = CLIENT_WANTS;
    longer.replace(2, 4, std::string("\x02\x01\x00", 3));
    EXPECT_EQ(ending_of(longer), "violation: an integer not in its shortest form");
}

TEST(strictness, refuses_a_length_that_is_not_in_its_shortest_form) {
    std::string longer = CLIENT_WANTS;
    longer.replace(8, 3, std::string("\x04\x81\x01\x61", 4));
    EXPECT_EQ(ending_of(longer), "violation: a length not in its shortest form");
}

TEST(strictness, refuses_a_text_over_its_limit) {
    std::string name(257, 'n');
    std::string bytes =
        writer().open(wire::CLIENT_WANTS).integer(514).open(wire::context(1)).octets(name).bytes;
    EXPECT_EQ(ending_of(bytes), "violation: a text of 257 bytes, the limit is 256");
}

TEST(strictness, refuses_further_fields) {
    std::string longer = CLIENT_WANTS;
    longer.insert(25, std::string("\x05\x00", 2));
    EXPECT_EQ(ending_of(longer), "violation: tag 40 where 0 belongs");
}

TEST(wire_writer, writes_numbers_in_their_shortest_form) {
    EXPECT_EQ(writer().integer(0).bytes, std::string("\x02\x00", 2));
    EXPECT_EQ(writer().integer(127).bytes, "\x02\x01\x7F");
    EXPECT_EQ(writer().integer(128).bytes, std::string("\x02\x02\x00\x80", 4));
    EXPECT_EQ(writer().integer(-1).bytes, "\x02\x01\xFF");
    EXPECT_EQ(writer().integer(-129).bytes, "\x02\x02\xFF\x7F");
    EXPECT_EQ(writer().enumerated(200).bytes, std::string("\x0A\x02\x00\xC8", 4));
}

TEST(wire_writer, writes_tags_of_one_byte_and_of_two) {
    EXPECT_EQ(writer().open(wire::DOWNTIME_REQ).bytes, "\x7E\x80");
    EXPECT_EQ(writer().open(wire::SCAN_REQ).bytes, "\x7F\x20\x80");
}

TEST(wire_numbers, are_told_in_decimal) {
    EXPECT_EQ(wire::decimal(""), "0");
    EXPECT_EQ(wire::decimal(std::string("\x01\x00\x00\x00\x00\x00\x00\x00\x00", 9)), "18446744073709551616");
}

TEST(wire_numbers, make_powers_that_both_sides_share) {
    std::string p = wire::magnitude_of(0x1FFFFFFFFFFFFFFF);
    std::string g = wire::magnitude_of(37);
    std::string a = wire::magnitude_of(0x123456789);
    std::string b = wire::magnitude_of(0xFEDCBA987);
    EXPECT_EQ(wire::power(wire::power(g, a, p), b, p), wire::power(wire::power(g, b, p), a, p));
    EXPECT_EQ(
        wire::value_of(wire::power(wire::magnitude_of(5), wire::magnitude_of(6), wire::magnitude_of(23))),
        8U);
}
