#include "probes/hw/id_text.h"

#include <gtest/gtest.h>

static int64_t number_in(const char *text, const char *rest) {
    uint32_t number = 0;
    const char *at = text;
    if (!read_number(&at, &number)) {
        EXPECT_EQ(at, text);
        return -1;
    }
    EXPECT_STREQ(at, rest);
    return number;
}

TEST(read_number, takes_decimal_digits_of_32_bits) {
    EXPECT_EQ(number_in("0", ""), 0);
    EXPECT_EQ(number_in("31:x", ":x"), 31);
    EXPECT_EQ(number_in("007", ""), 7);
    EXPECT_EQ(number_in("4294967295", ""), 4294967295LL);
    EXPECT_EQ(number_in("4294967296", ""), -1);
    EXPECT_EQ(number_in("99999999999999999999999999", ""), -1);
    for (const char *none : {"", "x", "-1", "+1", ":"})
        EXPECT_EQ(number_in(none, ""), -1) << none;
}

static int byte_in(const char *text, const char *rest) {
    uint8_t byte = 0;
    const char *at = text;
    if (!read_hex_byte(&at, &byte)) return -1;
    EXPECT_STREQ(at, rest);
    return byte;
}

TEST(read_hex_byte, takes_one_or_two_digits) {
    EXPECT_EQ(byte_in("0", ""), 0);
    EXPECT_EQ(byte_in("a:", ":"), 10);
    EXPECT_EQ(byte_in("Ff1", "1"), 255);
    EXPECT_EQ(byte_in("9g", "g"), 9);
    EXPECT_EQ(byte_in("", ""), -1);
    EXPECT_EQ(byte_in("g0", ""), -1);
    EXPECT_EQ(byte_in(":0", ""), -1);
}

TEST(read_word, moves_behind_the_word_alone) {
    const char *text = "lv:3";
    EXPECT_FALSE(read_word(&text, "cntrl:"));
    EXPECT_STREQ(text, "lv:3");
    EXPECT_TRUE(read_word(&text, "lv:"));
    EXPECT_STREQ(text, "3");
}
