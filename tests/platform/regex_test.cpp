#include "platform/regex.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

class regexes : public testing::Test {
protected:
    test_host host;
    tn_regex regex = {};

    void SetUp() override { regex_host = &regex_ops_host; }
    void TearDown() override {
        tn_regfree(&regex);
        EXPECT_EQ(host.blocks, 0);
    }

    void compile(const char *pattern) { ASSERT_EQ(tn_regcomp(&regex, pattern), 0) << pattern; }

    // The places of the match and its groups, as "1-3 2-2 -"; "none" without a match.
    std::string search(const char *text, size_t count = 1) {
        tn_match found[20] = {};
        int code = tn_regexec(&regex, text, count, found);
        if (code == TN_REG_NOMATCH) return "none";
        if (code != 0) return "code " + std::to_string(code);
        std::string places;
        for (size_t i = 0; i < count; i++) {
            places += i != 0 ? " " : "";
            places += found[i].start < 0
                          ? "-"
                          : std::to_string(found[i].start) + "-" + std::to_string(found[i].end);
        }
        return places;
    }
};

TEST_F(regexes, find_the_leftmost_longest_match) {
    compile("b|bc|a");
    EXPECT_EQ(search("xbcd"), "1-3");
    EXPECT_EQ(search("xyz"), "none");
}

TEST_F(regexes, tell_the_places_of_their_groups) {
    compile("(a)|(b+)(c)?");
    EXPECT_EQ(regex.re_nsub, 3U);
    EXPECT_EQ(search("xbb", 4), "1-3 - 1-3 -");
}

TEST_F(regexes, fill_places_beyond_their_groups) {
    compile("b");
    EXPECT_EQ(search("abc", 20), "1-2 - - - - - - - - - - - - - - - - - - -");
}

TEST_F(regexes, need_no_place_for_the_match) {
    compile("b");
    EXPECT_EQ(tn_regexec(&regex, "abc", 0, nullptr), 0);
    EXPECT_EQ(tn_regexec(&regex, "xyz", 0, nullptr), TN_REG_NOMATCH);
}

TEST_F(regexes, are_extended_and_nothing_more) {
    compile("^a.c$");
    EXPECT_EQ(search("a\nc"), "0-3"); // a line end is a character
    EXPECT_EQ(search("x\nabc"), "none");
    EXPECT_EQ(search("ABC"), "none");
}

TEST_F(regexes, understand_both_forms_of_word_boundaries) {
    compile("[[:<:]]disk[[:>:]]");
    EXPECT_EQ(search("a disk failed"), "2-6");
    EXPECT_EQ(search("diskette"), "none");
    EXPECT_EQ(search("ramdisk"), "none");
    EXPECT_EQ(search("disk"), "0-4");
}

TEST_F(regexes, count_the_same_groups_with_word_boundaries) {
    compile("([[:<:]]a)(b[[:>:]])");
    EXPECT_EQ(regex.re_nsub, 2U);
    EXPECT_EQ(search("x ab", 3), "2-4 2-3 3-4");
}

TEST_F(regexes, leave_an_escaped_bracket_as_it_is) {
    compile("\\[[:<:]]");
    EXPECT_EQ(search("x[<]"), "1-4");
    EXPECT_EQ(search("x"), "none");
}

TEST_F(regexes, take_an_escaped_backslash_for_itself) {
    compile("\\\\[[:<:]]a");
    EXPECT_EQ(search("x\\a"), "1-3");
}

TEST_F(regexes, keep_a_backslash_at_the_end_for_the_engine) {
    EXPECT_NE(tn_regcomp(&regex, "a\\"), 0);
}

TEST_F(regexes, refuse_a_bad_pattern_and_leave_nothing) {
    int code = tn_regcomp(&regex, "a(b");
    EXPECT_NE(code, 0);
    EXPECT_EQ(regex.compiled, nullptr);
    EXPECT_EQ(host.blocks, 0);
    char words[80];
    tn_regerror(code, &regex, words, sizeof words);
    EXPECT_STREQ(words, "Unmatched ( or \\(");
}

TEST_F(regexes, cut_their_words_at_the_buffer) {
    int code = tn_regcomp(&regex, "a(b");
    char words[10];
    tn_regerror(code, &regex, words, 10);
    EXPECT_STREQ(words, "Unmatched");
}

TEST_F(regexes, fail_where_there_is_none) {
    EXPECT_EQ(search(""), "code " + std::to_string(TN_REG_UNUSABLE));
    char words[80] = "";
    tn_regerror(TN_REG_UNUSABLE, &regex, words, sizeof words);
    EXPECT_STRNE(words, "");
}

TEST_F(regexes, are_none_when_freed) {
    compile("a");
    tn_regfree(&regex);
    tn_regfree(&regex);
    EXPECT_EQ(search("a"), "code " + std::to_string(TN_REG_UNUSABLE));
}

TEST_F(regexes, fail_when_memory_is_out) {
    for (uint32_t n = 1; n <= 2; n++) {
        host.fail_allocation = n;
        EXPECT_NE(tn_regcomp(&regex, "a"), 0) << n;
        EXPECT_EQ(regex.compiled, nullptr) << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
    compile("a");
}
