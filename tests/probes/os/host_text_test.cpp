#include "probes/os/host_text.h"

#include "probes/os/rounding.h"

#include <cmath>
#include <gtest/gtest.h>
#include <string>

TEST(find_line, finds_a_key_only_at_the_start_of_a_line) {
    EXPECT_STREQ(find_line("xctxt 1\nctxt 2\n", "ctxt "), "2\n");
    EXPECT_EQ(find_line("a ctxt 1\n", "ctxt "), nullptr);
}

TEST(find_line, takes_the_first_of_several) {
    EXPECT_STREQ(find_line("key 1\nkey 2\n", "key "), "1\nkey 2\n");
}

TEST(find_line, leaves_out_a_line_without_its_end) {
    EXPECT_EQ(find_line("ctxt 12", "ctxt "), nullptr);
    EXPECT_EQ(find_line("", "ctxt "), nullptr);
}

TEST(next_line, is_absent_behind_the_last_whole_line) {
    EXPECT_STREQ(next_line("a\nb"), "b");
    EXPECT_EQ(next_line("b"), nullptr);
}

TEST(read_number, skips_blanks_and_stops_behind_the_digits) {
    const char *at = " \t42kB";
    uint64_t number = 0;
    EXPECT_TRUE(read_number(&at, &number));
    EXPECT_EQ(number, 42U);
    EXPECT_STREQ(at, "kB");
}

TEST(read_number, refuses_what_is_no_number) {
    uint64_t number = 7;
    for (const char *text : {"", " ", "-5", "x1", "\n3"}) {
        const char *at = text;
        EXPECT_FALSE(read_number(&at, &number)) << text;
    }
    EXPECT_EQ(number, 7U);
}

TEST(read_number, takes_64_bits_and_no_more) {
    uint64_t number = 0;
    const char *largest = "18446744073709551615 ";
    EXPECT_TRUE(read_number(&largest, &number));
    EXPECT_EQ(number, UINT64_MAX);
    const char *larger = "18446744073709551616 ";
    EXPECT_FALSE(read_number(&larger, &number));
    const char *longer = "99999999999999999999999999 ";
    EXPECT_FALSE(read_number(&longer, &number));
}

TEST(nearest_integer, rounds_halves_up) {
    EXPECT_EQ(nearest_integer(2.5), 3);
    EXPECT_EQ(nearest_integer(2.49), 2);
    EXPECT_EQ(nearest_integer(-2.5), -2);
}

TEST(nearest_integer, keeps_the_low_32_bits) {
    EXPECT_EQ(nearest_integer(2147483647.0), 2147483647);
    EXPECT_EQ(nearest_integer(2147483648.0), INT32_MIN);
    EXPECT_EQ(nearest_integer(4294967296.0 + 5), 5);
}

TEST(nearest_integer, gives_0_for_what_64_bits_cannot_hold) {
    EXPECT_EQ(nearest_integer(1e19), 0);
    EXPECT_EQ(nearest_integer(-1e300), 0);
    EXPECT_EQ(nearest_integer(INFINITY), 0);
    EXPECT_EQ(nearest_integer(NAN), 0);
}

TEST(truncated_integer, cuts_toward_zero) {
    EXPECT_EQ(truncated_integer(2.99), 2);
    EXPECT_EQ(truncated_integer(-2.99), -2);
}
