#include "server/value_text.h"

#include "fakes/test_host.h"

#include <cmath>
#include <gtest/gtest.h>

TEST(value_text, gives_sizes_in_the_largest_fitting_unit) {
    EXPECT_EQ(value_text(512.4, "kB"), "512 kB");
    EXPECT_EQ(value_text(1023, "kB"), "1023 kB");
    EXPECT_EQ(value_text(1024, "kB"), "1.0 MB");
    EXPECT_EQ(value_text(12.3 * 1048576, "kB"), "12.3 GB");
    EXPECT_EQ(value_text(5e15, "kB"), "4547.5 PB");
}

TEST(value_text, gives_hundredths_as_per_cents) {
    EXPECT_EQ(value_text(9831, "%"), "98.31 %");
    EXPECT_EQ(value_text(57, "1%"), "57 %");
}

TEST(value_text, gives_seconds_as_a_clock) {
    EXPECT_EQ(value_text(59, "s"), "00:00:59");
    EXPECT_EQ(value_text(86399, "s"), "23:59:59");
    EXPECT_EQ(value_text(3 * 86400 + 4 * 3600 + 729, "s"), "3 d 04:12:09");
    EXPECT_EQ(value_text(-61, "s"), "-00:01:01");
    EXPECT_EQ(value_text(0.0023, "s"), "0.0023 s");
    EXPECT_EQ(value_text(60.4, "s"), "00:01:00");
}

TEST(value_text, leaves_other_units_as_they_are) {
    EXPECT_EQ(value_text(1234, "/s"), "1234 /s");
    EXPECT_EQ(value_text(2.5, "V"), "2.5 V");
    EXPECT_EQ(value_text(1, ""), "1");
    EXPECT_EQ(value_text(7, "a\033b"), "7 a b");
}

TEST(value_text, has_words_for_what_is_no_number) {
    EXPECT_EQ(value_text({}, "kB"), "-");
    EXPECT_EQ(value_text(std::string("line\nline"), "kB"), "line line");
    EXPECT_EQ(value_text(double{INFINITY}, "kB"), "inf");
}

TEST(shown, obeys_no_control_character) {
    EXPECT_EQ(shown("a\033[31mb\r\n\x7F"), "a [31mb");
    EXPECT_EQ(shown("Gr\xC3\xBC\xC3\x9F"
                    "e"),
              "Gr\xC3\xBC\xC3\x9F"
              "e");
}

TEST(shown, is_cut) {
    EXPECT_EQ(shown("abcdef", 6), "abcdef");
    EXPECT_EQ(shown("abcdefg", 6), "abcdef...");
}

TEST(log_text, writes_out_what_a_terminal_would_obey) {
    EXPECT_EQ(log_text("a\tb\033[2J\x7F"), "a\\tb\\x1B[2J\\x7F");
    EXPECT_EQ(log_text("one\r\n two"), "one\\r\\n two");
    EXPECT_EQ(log_text("\xC2\x9B"), "\\xC2\\x9B"); // a control character of two bytes
}

TEST(log_text, leaves_letters_as_they_are) {
    std::string text = "Gr\xC3\xBC\xC3\x9F"
                       "e \xE2\x82\xAC \xF0\x9F\x98\x80 \xC2\xA0";
    EXPECT_EQ(log_text(text), text);
}

TEST(log_text, writes_out_bytes_that_are_no_letters) {
    EXPECT_EQ(log_text("Gr\xFC\xDF"), "Gr\\xFC\\xDF");
    EXPECT_EQ(log_text("\xC3"), "\\xC3");
    EXPECT_EQ(log_text("\xE2\x82"), "\\xE2\\x82");
    EXPECT_EQ(log_text("\xC0\x80 \xF5\x80\x80\x80"), "\\xC0\\x80 \\xF5\\x80\\x80\\x80");
}

TEST(log_text, leaves_out_the_end_of_the_line) {
    EXPECT_EQ(log_text("line\r\n"), "line");
    EXPECT_EQ(log_text("\n"), "");
}

TEST(log_text, is_cut_between_letters) {
    EXPECT_EQ(log_text("abcdef", 6), "abcdef");
    EXPECT_EQ(log_text("abcdefg", 6), "abcdef... (1 more)");
    EXPECT_EQ(log_text("abcdef\n", 6), "abcdef");
    EXPECT_EQ(log_text("abcde\xC3\xBCg", 6), "abcde\xC3\xBC... (1 more)");
}

TEST(time_text, is_local) {
    test_host host;
    EXPECT_EQ(time_text(1'000'000'000), "2001-09-09 01:46:40");
    host.zone = 7200;
    EXPECT_EQ(time_text(1'000'000'000), "2001-09-09 03:46:40");
}

TEST(status_word, names_all_four) {
    EXPECT_STREQ(status_word(STATUS_GOOD), "good");
    EXPECT_STREQ(status_word(STATUS_WARNING), "warning");
    EXPECT_STREQ(status_word(STATUS_ALERT), "alert");
    EXPECT_STREQ(status_word(STATUS_ERROR), "error");
    EXPECT_STREQ(status_word(4), "?");
}
