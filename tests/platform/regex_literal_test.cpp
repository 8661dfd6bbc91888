#include "platform/regex_literal.h"

#include "fakes/test_host.h"
#include "platform/random_regex.h"
#include "platform/regex.h"

#include <gtest/gtest.h>

class regex_literals : public testing::Test {
protected:
    test_host host;

    void SetUp() override { regex_host = &regex_ops_host; }
    void TearDown() override { EXPECT_EQ(host.blocks, 0); }

    static std::string of(const char *pattern) {
        regex_literal found = regex_literal_of(pattern);
        return {found.bytes, found.length};
    }
    static bool occurs(const std::string &literal, const std::string &text) {
        std::string pattern; // of plain letters, so that it is its own literal
        for (char c : literal)
            pattern += std::string("[") + c + "]";
        regex_literal looked_for = regex_literal_of(pattern.c_str());
        EXPECT_EQ(std::string(looked_for.bytes, looked_for.length), literal);
        return literal_occurs(&looked_for, text.data(), text.size());
    }
};

TEST_F(regex_literals, are_the_longest_bytes_in_a_row) {
    EXPECT_EQ(of("abc"), "abc");
    EXPECT_EQ(of("ab.cde"), "cde");
    EXPECT_EQ(of("abc[xy]de"), "abc");
    EXPECT_EQ(of("a[b]\\.c"), "ab.c");
    EXPECT_EQ(of("(ab)(cd)"), "abcd");
}

TEST_F(regex_literals, go_on_over_what_takes_no_place) {
    EXPECT_EQ(of("^ab\\>cd$"), "abcd");
    EXPECT_EQ(of("a()b"), "ab");
}

TEST_F(regex_literals, end_at_what_may_be_missing_or_come_again) {
    EXPECT_EQ(of("abc?d"), "ab");
    EXPECT_EQ(of("ab*cd"), "cd");
    EXPECT_EQ(of("x(abc)+y"), "abc");
    EXPECT_EQ(of("x(abc)*y"), "x");
    EXPECT_EQ(of("a{2}b"), "a");
    EXPECT_EQ(of("(a)\\1b"), "a");
}

TEST_F(regex_literals, are_none_of_a_choice) {
    EXPECT_EQ(of("abc|abd"), "");
    EXPECT_EQ(of("(abc|abd)ef"), "ef");
    EXPECT_EQ(of("[ab]"), "");
    EXPECT_EQ(of(""), "");
    EXPECT_EQ(of("[\x80-\xFF]abc"), ""); // of a pattern that is left to the engine
}

TEST_F(regex_literals, have_a_limit) {
    EXPECT_EQ(of(std::string(40, 'x').c_str()), std::string(LITERAL_LIMIT, 'x'));
}

TEST_F(regex_literals, are_found_at_every_place) {
    for (size_t length = 0; length < 70; length++)
        for (size_t at = 0; at + 3 <= length; at++) {
            std::string text(length, 'a');
            EXPECT_FALSE(occurs("aba", text));
            text[at + 1] = 'b';
            EXPECT_TRUE(occurs("aba", text)) << length << " " << at;
        }
    EXPECT_TRUE(occurs("ab", "ab"));
    EXPECT_TRUE(occurs("a", "a"));
    EXPECT_TRUE(occurs("", ""));
    EXPECT_FALSE(occurs("ab", "a"));
    EXPECT_FALSE(occurs("ab", ""));
}

TEST_F(regex_literals, are_not_found_by_two_of_their_bytes_alone) {
    for (const char *other : {"zzc", "azc", "abz", "zbc", "abd"})
        EXPECT_FALSE(occurs("abc", other + std::string(20, 'x') + other + other)) << other;
    EXPECT_TRUE(occurs("abc", "axc" + std::string(20, 'x') + "azcabc"));
}

TEST_F(regex_literals, are_looked_for_by_their_rarest_bytes) {
    regex_literal found = regex_literal_of("segfault at ");
    EXPECT_EQ(found.bytes[found.one], 'f');
    EXPECT_EQ(found.bytes[found.other], 'g');
    found = regex_literal_of("Zee");
    EXPECT_EQ(found.one, 0U);
    EXPECT_NE(found.other, 0U);
    found = regex_literal_of("eZ");
    EXPECT_EQ(found.one + found.other, 1U);
}

// Where the bytes are not, the engine finds nothing.
TEST_F(regex_literals, stand_in_whatever_the_pattern_matches) {
    int matched = 0;
    for (uint32_t seed = 0; seed < 3'000; seed++) {
        random_regex random(seed);
        std::string pattern = random.pattern();
        tn_regex regex;
        if (tn_regcomp(&regex, pattern.c_str()) != 0) continue;
        for (int i = 0; i < 10; i++) {
            std::string text = random.text(12);
            if (regex_host->regexec(&regex, text.c_str(), 0, nullptr) != 0) continue;
            matched++;
            EXPECT_TRUE(occurs(of(pattern.c_str()), text)) << pattern << " in " << text;
        }
        tn_regfree(&regex);
    }
    EXPECT_GT(matched, 5'000);
}
