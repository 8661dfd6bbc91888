#include "platform/errors.h"

#include "fakes/test_host.h"

#include <cstring>
#include <gtest/gtest.h>
#include <thread>

TEST(format_error, keeps_a_text_until_the_second_next_call) {
    const char *first = format_error("first %d", 1);
    const char *second = format_error("second %s", "text");
    EXPECT_STREQ(first, "first 1");
    EXPECT_STREQ(second, "second text");
    EXPECT_EQ(format_error("third"), first);
    EXPECT_STREQ(second, "second text");
}

TEST(format_error, takes_an_earlier_text_as_an_argument) {
    const char *text = format_error("bottom");
    for (const char *word : {"auth", "num", "list", "checkin"})
        text = format_error("%s: %s", word, text);
    EXPECT_STREQ(text, "checkin: list: num: auth: bottom");
}

TEST(format_error, fills_its_buffer_with_256_characters) {
    for (size_t length : {255U, 256U, 257U, 1000U}) {
        std::string message(length, 'e');
        EXPECT_EQ(strlen(format_error("%s", message.c_str())), std::min<size_t>(length, 256)) << length;
    }
}

TEST(format_error, keeps_a_full_text_apart_from_the_next_one) {
    std::string full(300, 'e');
    const char *first = format_error("%s", full.c_str());
    const char *second = format_error("%s", full.c_str());
    first = format_error("short");
    EXPECT_EQ(std::string(second), std::string(256, 'e'));
    EXPECT_STREQ(first, "short");
}

TEST(format_error, gives_each_thread_texts_of_its_own) {
    const char *here = format_error("of the main thread");
    std::thread other([here] {
        for (int i = 0; i < 4; i++)
            EXPECT_NE(format_error("of the other thread, %d", i), here);
    });
    other.join();
    EXPECT_STREQ(here, "of the main thread");
}

class error_texts : public testing::Test {
protected:
    test_host host;
};

TEST_F(error_texts, are_the_words_of_the_host) {
    host.error_words[5] = "Access is denied.";
    EXPECT_STREQ(error_text(5), "Access is denied.");
}

TEST_F(error_texts, lose_their_line_ends) {
    host.error_words[5] = "Two\r\nlines.\r\n\n";
    EXPECT_STREQ(error_text(5), "Two\r\nlines.");
}

TEST_F(error_texts, are_the_number_where_only_line_ends_came) {
    host.error_words[5] = "\r\n";
    EXPECT_STREQ(error_text(5), "5");
    host.error_words[5] = "";
    EXPECT_STREQ(error_text(4294967295U), "system error 4294967295");
    EXPECT_STREQ(error_text(5), "5");
}

TEST_F(error_texts, tell_both_numbers_where_the_host_has_no_words) {
    host.error_words[4000000000U] = "(none)";
    EXPECT_STREQ(error_text(4000000000U), "4000000000 (FormatMessage: 317)");
}

TEST_F(error_texts, are_cut_at_their_buffer) {
    host.error_words[5] = std::string(300, 'w');
    EXPECT_EQ(std::string(error_text(5)), std::string(255, 'w'));
}

TEST_F(error_texts, stand_apart_from_failure_texts) {
    const char *failure = format_error("kept");
    const char *words = error_text(5);
    format_error("%s (%d)", words, 5);
    EXPECT_STREQ(words, "system error 5");
    EXPECT_STREQ(failure, "kept");
}

TEST_F(error_texts, of_the_last_error_follow_it) {
    host.last_error = 32;
    EXPECT_EQ(last_error(), 32U);
    EXPECT_STREQ(last_error_text(), "system error 32");
}
