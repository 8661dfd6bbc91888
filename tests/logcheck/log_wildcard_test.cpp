#include "logcheck/log_wildcard.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <gtest/gtest.h>
#include <random>

struct log_wildcard : testing::Test {
    test_host host;
};

TEST_F(log_wildcard, question_mark_is_exactly_one_character) {
    EXPECT_TRUE(log_wildcard_match("ab", "a?"));
    EXPECT_TRUE(log_wildcard_match("ab", "??"));
    EXPECT_FALSE(log_wildcard_match("a", "a?"));
    EXPECT_FALSE(log_wildcard_match("abc", "a?"));
}

TEST_F(log_wildcard, star_is_one_character_or_more) {
    EXPECT_TRUE(log_wildcard_match("abcd", "abc*"));
    EXPECT_TRUE(log_wildcard_match("axyzb", "a*b"));
    EXPECT_TRUE(log_wildcard_match("x", "*"));
    EXPECT_FALSE(log_wildcard_match("abc", "abc*"));
    EXPECT_FALSE(log_wildcard_match("ab", "a*b"));
    EXPECT_FALSE(log_wildcard_match("", "*"));
}

TEST_F(log_wildcard, star_takes_more_until_the_rest_matches) {
    EXPECT_TRUE(log_wildcard_match("a.log.log", "*.log"));
    EXPECT_TRUE(log_wildcard_match("xaay", "*a?"));
    EXPECT_TRUE(log_wildcard_match("aXbXbXc", "a*b*c"));
    EXPECT_FALSE(log_wildcard_match("a.log.txt", "*.log"));
}

TEST_F(log_wildcard, name_and_pattern_end_together) {
    EXPECT_TRUE(log_wildcard_match("abc", "abc"));
    EXPECT_TRUE(log_wildcard_match("", ""));
    EXPECT_FALSE(log_wildcard_match("abc", "ab"));
    EXPECT_FALSE(log_wildcard_match("ab", "abc"));
    EXPECT_FALSE(log_wildcard_match("a", ""));
}

TEST_F(log_wildcard, case_of_letters_does_not_count) {
    EXPECT_TRUE(log_wildcard_match("App.LOG", "aPP.log"));
    EXPECT_TRUE(log_wildcard_match("XYZ", "*z"));
    EXPECT_FALSE(log_wildcard_match("[", "{")); // as far apart as two cases of a letter
}

TEST_F(log_wildcard, two_stars_at_the_end_match_all_that_is_left_but_not_nothing) {
    EXPECT_TRUE(log_wildcard_match("anything", "**"));
    EXPECT_TRUE(log_wildcard_match("x", "**"));
    EXPECT_TRUE(log_wildcard_match("abc", "a**"));
    EXPECT_FALSE(log_wildcard_match("", "**"));
    EXPECT_FALSE(log_wildcard_match("a", "a**"));
    EXPECT_TRUE(host.log.empty());
}

TEST_F(log_wildcard, two_stars_with_something_behind_them_match_nothing_and_are_told) {
    EXPECT_FALSE(log_wildcard_match("abc", "a**c"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Bad pattern found: \"a**c\""));
    host.log.clear();
    EXPECT_FALSE(log_wildcard_match("abc", "***"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Bad pattern found: \"***\""));
}

TEST_F(log_wildcard, bad_end_of_a_pattern_is_not_told_where_the_name_differs_before) {
    EXPECT_FALSE(log_wildcard_match("xbc", "a**c"));
    EXPECT_FALSE(log_wildcard_match("a", "a**c"));
    EXPECT_TRUE(host.log.empty());
}

TEST_F(log_wildcard, bytes_beyond_ascii_are_characters_like_others) {
    EXPECT_TRUE(log_wildcard_match("\xC3\xA4.log", "*.log"));
    EXPECT_TRUE(log_wildcard_match("\xE4.log", "?.log"));
    EXPECT_FALSE(log_wildcard_match("\xC4", "\xE4"));
}

// The rules as they are told, each longer run of a star tried in turn. `bad` is set where a pattern of two
// stars with something behind them is met.
static bool slow_match(const char *name, const char *pattern, bool *bad) {
    if (*name == '\0' || *pattern == '\0') return *name == *pattern;
    if (pattern[0] == '*' && pattern[1] == '*') {
        if (pattern[2] == '\0') return true;
        *bad = true;
        return false;
    }
    if (*pattern == '*') {
        for (const char *rest = name + 1;; rest++) {
            if (slow_match(rest, pattern + 1, bad)) return true;
            if (*rest == '\0') return false;
        }
    }
    bool one = *pattern == '?' || to_lower(*name) == to_lower(*pattern);
    return one && slow_match(name + 1, pattern + 1, bad);
}

TEST_F(log_wildcard, fast_answers_are_those_of_trying_everything) {
    std::mt19937 chance(20);
    auto random_text = [&](const std::string &alphabet, size_t longest) {
        std::string text;
        for (size_t left = chance() % (longest + 1); left > 0; left--)
            text += alphabet[chance() % alphabet.size()];
        return text;
    };
    int matches = 0;
    int told = 0;
    for (int i = 0; i < 200000; i++) {
        std::string name = random_text("aAbB", 9);
        std::string pattern = random_text("aAb?*", 7);
        bool bad = false;
        bool expected = slow_match(name.c_str(), pattern.c_str(), &bad);
        host.log.clear();
        ASSERT_EQ(log_wildcard_match(name.c_str(), pattern.c_str()), expected) << name << " " << pattern;
        ASSERT_EQ(host.log.size(), bad ? 1U : 0U) << name << " " << pattern;
        matches += expected;
        told += bad;
    }
    EXPECT_GT(matches, 5000);
    EXPECT_GT(told, 5000);
}

// Trying every run of each star would take longer than there is time.
TEST_F(log_wildcard, many_stars_are_answered_at_once) {
    std::string name(250, 'a');
    std::string pattern;
    for (int i = 0; i < 60; i++)
        pattern += "*a";
    EXPECT_FALSE(log_wildcard_match(name.c_str(), (pattern + "*b").c_str()));
    EXPECT_TRUE(log_wildcard_match(name.c_str(), pattern.c_str()));
}

TEST_F(log_wildcard, wildcards_are_question_marks_and_stars) {
    EXPECT_TRUE(log_has_wildcard("a?"));
    EXPECT_TRUE(log_has_wildcard("*"));
    EXPECT_FALSE(log_has_wildcard("a[b].log"));
    EXPECT_FALSE(log_has_wildcard(""));
}
