#include "platform/text.h"

#include "fakes/test_host.h"
#include "platform/heap.h"

#include <cmath>
#include <gtest/gtest.h>

class texts : public testing::Test {
protected:
    test_host host;
};

TEST_F(texts, copies_own_their_bytes) {
    char original[] = "abc";
    text_guard copy(text_copy(original));
    original[0] = 'x';
    EXPECT_STREQ(copy.get(), "abc");
}

TEST_F(texts, copy_of_absent_is_absent) {
    EXPECT_EQ(text_copy(nullptr), nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(texts, copy_is_absent_when_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_EQ(text_copy("abc"), nullptr);
    EXPECT_TRUE(host.log.empty()); // and nothing ends for it
}

TEST_F(texts, part_is_terminated_behind_its_length) {
    text_guard part(text_copy_part("abcdef", 3));
    EXPECT_STREQ(part.get(), "abc");
    text_guard nothing(text_copy_part("abcdef", 0));
    EXPECT_STREQ(nothing.get(), "");
}

TEST_F(texts, part_keeps_zero_bytes) {
    text_guard part(text_copy_part("a\0b", 3));
    EXPECT_EQ(std::string(part.get(), 4), std::string("a\0b\0", 4));
}

TEST_F(texts, replacing_frees_what_was_there) {
    char *slot = text_copy("old");
    text_replace(&slot, text_copy("new"));
    EXPECT_STREQ(slot, "new");
    EXPECT_EQ(host.blocks, 1);
    text_replace(&slot, nullptr);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(text_equal, compares_exactly) {
    EXPECT_TRUE(text_equal("abc", "abc"));
    EXPECT_TRUE(text_equal("", ""));
    EXPECT_FALSE(text_equal("abc", "abC"));
    EXPECT_FALSE(text_equal("abc", "ab"));
}

TEST(text_equal, finds_absent_equal_to_nothing) {
    EXPECT_FALSE(text_equal(nullptr, ""));
    EXPECT_FALSE(text_equal("", nullptr));
    EXPECT_FALSE(text_equal(nullptr, nullptr));
}

TEST(text_starts_with, wants_the_whole_start) {
    EXPECT_TRUE(text_starts_with("DOWN 30", "DOWN "));
    EXPECT_TRUE(text_starts_with("DOWN", ""));
    EXPECT_FALSE(text_starts_with("DOW", "DOWN"));
    EXPECT_FALSE(text_starts_with("xDOWN", "DOWN"));
}

TEST(text_hash, is_the_published_one) {
    EXPECT_EQ(text_hash(""), 0x811C9DC5U);
    EXPECT_EQ(text_hash("a"), 0xE40C292CU);
    EXPECT_EQ(text_hash("foobar"), 0xBF9CF968U);
    EXPECT_EQ(text_hash("\xFF"), (0x811C9DC5U ^ 0xFFU) * 16777619U); // whatever the sign of a char
}

TEST(text_equal_folded, folds_the_case_of_letters_alone) {
    EXPECT_TRUE(text_equal_folded("EventLog", "eVENTlOG"));
    EXPECT_FALSE(text_equal_folded("eventlog", "eventlogs"));
    EXPECT_FALSE(text_equal_folded("eventlogs", "eventlog"));
    EXPECT_FALSE(text_equal_folded("[", "{"));
    EXPECT_FALSE(text_equal_folded("\xC4", "\xE4"));
    EXPECT_FALSE(text_equal_folded(nullptr, ""));
    EXPECT_FALSE(text_equal_folded("", nullptr));
}

TEST(text_to_lower, lowers_letters_in_place_and_nothing_else) {
    char text[] = "AbZ@[`{\xC4 9";
    EXPECT_EQ(text_to_lower(text), text);
    EXPECT_STREQ(text, "abz@[`{\xC4 9");
}

TEST(copy_bounded, cuts_and_terminates) {
    char target[4] = {'x', 'x', 'x', 'x'};
    copy_bounded(target, "abcdef", 3);
    EXPECT_EQ(std::string(target, 4), std::string("ab\0x", 4));
    copy_bounded(target, "a", 4);
    EXPECT_STREQ(target, "a");
    copy_bounded(target, "abc", 4);
    EXPECT_STREQ(target, "abc");
    copy_bounded(target, "abc", 1);
    EXPECT_STREQ(target, "");
}

TEST(copy_bounded, touches_nothing_without_room) {
    char target[1] = {'x'};
    copy_bounded(target, "abc", 0);
    EXPECT_EQ(target[0], 'x');
}

TEST(parse_atoi, reads_digits_behind_white_space_and_sign) {
    EXPECT_EQ(parse_atoi("42"), 42);
    EXPECT_EQ(parse_atoi(" \t\n\v\f\r-17x"), -17);
    EXPECT_EQ(parse_atoi("+5"), 5);
    EXPECT_EQ(parse_atoi("010"), 10);
    EXPECT_EQ(parse_atoi("0x10"), 0);
}

TEST(parse_atoi, gives_0_for_what_is_no_number) {
    EXPECT_EQ(parse_atoi(""), 0);
    EXPECT_EQ(parse_atoi("abc"), 0);
    EXPECT_EQ(parse_atoi("- 5"), 0);
    EXPECT_EQ(parse_atoi("--5"), 0);
}

TEST(parse_atoi, wraps_in_32_bits) {
    EXPECT_EQ(parse_atoi("2147483647"), INT32_MAX);
    EXPECT_EQ(parse_atoi("2147483648"), INT32_MIN);
    EXPECT_EQ(parse_atoi("4294967297"), 1);
    EXPECT_EQ(parse_atoi("-2147483648"), INT32_MIN);
    EXPECT_EQ(parse_atoi("18446744073709551617"), 1);
}

TEST(parse_number, takes_the_base_from_the_prefix) {
    EXPECT_EQ(parse_number("10"), 10);
    EXPECT_EQ(parse_number("010"), 8);
    EXPECT_EQ(parse_number("0x10"), 16);
    EXPECT_EQ(parse_number("0XfF"), 255);
    EXPECT_EQ(parse_number("-0x10"), -16);
    EXPECT_EQ(parse_number("0"), 0);
    EXPECT_EQ(parse_number("09"), 0); // octal has no such digit
}

TEST(parse_number, stops_at_the_first_other_character) {
    const char *end;
    const char *text = " 019";
    EXPECT_EQ(parse_number(text, &end), 1);
    EXPECT_EQ(end, text + 3);
    text = "0xg";
    EXPECT_EQ(parse_number(text, &end), 0);
    EXPECT_EQ(end, text + 1); // the digit 0 stands without its prefix
    text = "12ab";
    EXPECT_EQ(parse_number(text, &end), 12);
    EXPECT_EQ(end, text + 2);
}

TEST(parse_number, leaves_a_text_without_digits_whole) {
    const char *end;
    for (const char *text : {"", "b", " -", "-v"}) {
        EXPECT_EQ(parse_number(text, &end), 0) << text;
        EXPECT_EQ(end, text) << text;
    }
}

TEST(parse_int64, reads_the_whole_range) {
    EXPECT_EQ(parse_int64("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(parse_int64("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(parse_int64("0x7fffffffffffffff"), INT64_MAX);
    EXPECT_EQ(parse_int64("0777"), 511);
    EXPECT_EQ(parse_int64("-1"), -1);
}

TEST(parse_decimal, stores_where_it_stopped) {
    const char *end;
    const char *text = "  250x";
    EXPECT_EQ(parse_decimal(text, &end), 250U);
    EXPECT_EQ(end, text + 5);
    text = " \tx";
    EXPECT_EQ(parse_decimal(text, &end), 0U);
    EXPECT_EQ(end, text + 2); // the first that is no white space
    EXPECT_EQ(parse_decimal("18446744073709551615", nullptr), UINT64_MAX);
}

TEST(parse_decimal, knows_no_sign_and_no_overflow) {
    const char *end;
    const char *text = "-5";
    EXPECT_EQ(parse_decimal(text, &end), 0U);
    EXPECT_EQ(end, text);
    EXPECT_EQ(parse_decimal("18446744073709551617", nullptr), 1U);
}

static std::string scaled(double value) {
    char buffer[64];
    int length = format_scaled("Free", value, "B", buffer, sizeof buffer);
    EXPECT_EQ(static_cast<size_t>(length), strlen(buffer));
    return buffer;
}

TEST(format_scaled, uses_no_letter_below_1024) {
    EXPECT_EQ(scaled(1023.0), "Free 1023.00B");
    EXPECT_EQ(scaled(0.0), "Free   0.00B");
    EXPECT_EQ(scaled(-5000.0), "Free -5000.00B");
}

TEST(format_scaled, changes_letters_at_the_powers_of_1024) {
    EXPECT_EQ(scaled(1024.0), "Free   1.00kB");
    EXPECT_EQ(scaled(1048575.0), "Free 1024.00kB");
    EXPECT_EQ(scaled(1048576.0), "Free   1.00MB");
    EXPECT_EQ(scaled(1073741823.0), "Free 1024.00MB");
    EXPECT_EQ(scaled(1073741824.0), "Free   1.00GB");
    EXPECT_EQ(scaled(1536.0 * 1073741824.0), "Free 1536.00GB");
}

TEST(format_scaled, cuts_at_the_buffer_and_gives_the_whole_length) {
    char buffer[8];
    EXPECT_EQ(format_scaled("Free", 1024.0, "B", buffer, sizeof buffer), 13);
    EXPECT_STREQ(buffer, "Free   ");
}

TEST(floating_tests, tell_numbers_from_the_rest) {
    EXPECT_TRUE(is_nan(NAN));
    EXPECT_FALSE(is_nan(INFINITY));
    EXPECT_FALSE(is_nan(1.0));
    EXPECT_TRUE(is_finite(-1.5));
    EXPECT_FALSE(is_finite(-INFINITY));
    EXPECT_FALSE(is_finite(NAN));
}

TEST(is_blank, knows_the_six_blanks) {
    std::string blanks;
    for (int c = -128; c < 128; c++)
        if (is_blank(static_cast<char>(c))) blanks += static_cast<char>(c);
    EXPECT_EQ(blanks, "\t\n\v\f\r ");
}
