#include "logcheck/log_hex.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

class log_hex : public testing::Test {
protected:
    test_host host;

    static std::string encode(const std::string &bytes) {
        char out[2 * 100 + 1];
        memset(out, '#', sizeof out);
        log_hex_encode(bytes.data(), bytes.size(), out);
        return out;
    }
    static std::string decode(const std::string &text, size_t size = 100) {
        std::string out(size, '#');
        out.resize(log_hex_decode(text.c_str(), out.data(), size));
        return out;
    }
};

TEST_F(log_hex, puts_the_high_digit_first_and_no_separators) {
    EXPECT_EQ(encode(std::string("\x00\x1F\x7A", 3)), "001F7A");
    EXPECT_EQ(encode(""), "");
}

TEST_F(log_hex, of_a_high_byte_has_another_character_for_its_high_digit) {
    EXPECT_EQ(encode("\x80"), "g0");
    EXPECT_EQ(encode("\x9F"), " F");
    EXPECT_EQ(encode("\xA1"), "'1");
    EXPECT_EQ(encode("\xB2"), "%2");
    EXPECT_EQ(encode("\xC3"), "c3");
    EXPECT_EQ(encode("\xDF"), "'F");
}

TEST_F(log_hex, ends_at_a_byte_from_E0_up) {
    EXPECT_EQ(encode("a\xE0z"), "61");
    EXPECT_EQ(encode("a\xFFz"), "61");
}

TEST_F(log_hex, gives_every_byte_below_80_back) {
    for (char c = 0; c >= 0 && c < 0x7F; c++)
        EXPECT_EQ(decode(encode(std::string(3, c))), std::string(3, c));
    EXPECT_EQ(decode(encode("\x7F")), "\x7F");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(log_hex, gives_the_bytes_ahead_of_one_from_E0_up) {
    EXPECT_EQ(decode(encode("ab\xE9z")), "ab");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(log_hex, of_a_byte_from_80_to_DF_cannot_be_read_back) {
    EXPECT_EQ(decode(encode("ab\x80")), "");
    EXPECT_EQ(decode(encode("ab\xDF")), "");
    EXPECT_TRUE(host.logged(3, "Encountered wrong character in hex string 'g'"));
    EXPECT_TRUE(host.logged(3, "Encountered wrong character in hex string '''"));
}

TEST_F(log_hex, reads_a_letter_as_high_digit_ten_too_low) {
    EXPECT_EQ(decode("A1F2"), "\x01\x52");
}

TEST_F(log_hex, knows_upper_case_digits_only) {
    EXPECT_EQ(decode("6f"), "");
    EXPECT_TRUE(host.logged(3, "Encountered wrong character in hex string '6'"));
    EXPECT_EQ(decode("G0"), "");
    EXPECT_EQ(decode("/0"), "");
    EXPECT_EQ(decode("0:"), "");
    EXPECT_EQ(decode("0@"), "");
}

TEST_F(log_hex, has_an_even_number_of_digits) {
    EXPECT_EQ(decode("616"), "");
    EXPECT_TRUE(host.logged(3, "Odd number of characters in hex string \"616\""));
}

TEST_F(log_hex, stops_at_the_room_there_is) {
    EXPECT_EQ(decode("616263", 2), "ab");
    EXPECT_EQ(decode("6162x", 2), "ab");
    EXPECT_EQ(decode(encode(std::string(100, 'q'))), std::string(100, 'q'));
}
