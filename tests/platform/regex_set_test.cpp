#include "platform/regex_set.h"

#include "fakes/test_host.h"
#include "platform/heap.h"
#include "platform/random_regex.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

using regex_set_guard = guard<regex_set, regex_set_free>;

class regex_sets : public testing::Test {
protected:
    test_host host;
    std::vector<tn_regex> regexes;
    std::vector<std::string> patterns;
    regex_set_guard set;

    void SetUp() override { regex_host = &regex_ops_host; }
    void TearDown() override {
        clear();
        EXPECT_EQ(host.blocks, 0);
    }
    void clear() {
        set.reset();
        for (tn_regex &regex : regexes)
            tn_regfree(&regex);
        regexes.clear();
        patterns.clear();
    }

    bool add(const std::string &pattern) {
        tn_regex regex;
        if (tn_regcomp(&regex, pattern.c_str()) != 0) return false;
        regexes.push_back(regex);
        patterns.push_back(pattern);
        return true;
    }
    // The wish of the tests: the bits of any expression.
    static bool any_bit(void *words, regex_bits bits) {
        for (size_t i = 0; i < reinterpret_cast<size_t>(words); i++)
            if (bits[i] != 0) return true;
        return false;
    }
    bool make(const record_cut *cut = nullptr) {
        std::vector<const tn_regex *> all;
        for (const tn_regex &regex : regexes)
            all.push_back(&regex);
        auto *words = reinterpret_cast<void *>((all.size() + 63) / 64);
        set.reset(regex_set_new(all.data(), static_cast<uint32_t>(all.size()), cut, any_bit, words));
        return set != nullptr;
    }
    void make_of(std::initializer_list<const char *> from) {
        clear();
        for (const char *pattern : from)
            ASSERT_TRUE(add(pattern)) << pattern;
        ASSERT_TRUE(make());
    }

    // One letter an expression: '-' for a no, 'x' for a yes, '?' for a perhaps.
    std::string match(const std::string &text) {
        regex_bits bits = regex_set_match(set.get(), text.c_str());
        if (bits == nullptr) return "given up";
        std::string all;
        for (uint32_t i = 0; i < regexes.size(); i++)
            all += !regex_bit(bits, i) ? '-' : regex_set_is_exact(set.get(), i) ? 'x' : '?';
        return all;
    }
    bool engine_finds(size_t number, const std::string &text) {
        return regex_host->regexec(&regexes[number], text.c_str(), 0, nullptr) == 0;
    }
    void expect_as_engine(const std::string &text) {
        std::string all = match(text);
        ASSERT_EQ(all.size(), regexes.size()) << all;
        for (size_t i = 0; i < regexes.size(); i++) {
            bool found = engine_finds(i, text);
            if (all[i] == '?') continue;
            EXPECT_EQ(all[i] == 'x', found) << "pattern \"" << patterns[i] << "\" in \"" << text << "\"";
        }
    }

    // The places of the separators behind wanted records, by the set and by hand.
    // With a separator ahead of the text, which belongs to its first record where that is said.
    std::vector<size_t> run(const std::string &text, bool behind_separator = false, char separator = ';') {
        std::string whole = separator + text;
        std::vector<uint16_t> places(text.size() / 2 + RUN_SLACK);
        uint32_t count = regex_set_run(set.get(), whole.data() + 1, whole.data() + whole.size(),
                                       behind_separator, places.data());
        if (count == RECORDS_NOT_KNOWN) return {SIZE_MAX};
        return {places.begin(), places.begin() + count};
    }
    std::vector<size_t> run_by_hand(const std::string &text, const record_cut &cut) {
        std::vector<size_t> all;
        for (size_t start = 0; start < text.size();) {
            size_t end = text.find(static_cast<char>(cut.separator), start);
            std::string record = text.substr(start, end - start);
            if (!record.empty()) {
                if (cut.place == SEPARATOR_CLOSES) record += static_cast<char>(cut.separator);
                if (cut.place == SEPARATOR_OPENS && start > 0)
                    record.insert(0, 1, static_cast<char>(cut.separator));
                for (size_t i = 0; i < regexes.size(); i++)
                    if (engine_finds(i, record)) {
                        all.push_back(end);
                        break;
                    }
            }
            start = end + 1;
        }
        return all;
    }
};

TEST_F(regex_sets, tell_each_expression_apart) {
    make_of({"abc", "b+", "^x", "y$", "[0-9]{3}"});
    EXPECT_EQ(match("zabcz"), "xx---");
    EXPECT_EQ(match("x12345y"), "--xxx");
    EXPECT_EQ(match(""), "-----");
    EXPECT_EQ(match("12"), "-----");
}

TEST_F(regex_sets, keep_what_is_found) {
    make_of({"^a$", "a", "b"});
    EXPECT_EQ(match("a"), "xx-");
    EXPECT_EQ(match("ab"), "-xx");
    EXPECT_EQ(match("ba"), "-xx");
}

TEST_F(regex_sets, know_words) {
    make_of({"\\<err\\>", "[[:<:]]x", "\\bfoo", "o\\B"});
    EXPECT_EQ(match("an err."), "x---");
    EXPECT_EQ(match("errs"), "----");
    EXPECT_EQ(match("_x -x"), "-x--");
    EXPECT_EQ(match("a foo"), "--xx");
}

TEST_F(regex_sets, hold_a_group_that_comes_again_for_a_perhaps) {
    make_of({"(a|b)c\\1", "q"});
    EXPECT_EQ(match("aca"), "?-");
    EXPECT_EQ(match("acb"), "?-"); // the engine decides
    EXPECT_EQ(match("ab"), "--");
}

TEST_F(regex_sets, hold_an_assertion_in_a_repetition_for_a_perhaps) {
    make_of({"(^a)+"});
    EXPECT_EQ(match("ba"), "?");
    EXPECT_EQ(match("b"), "-");
}

TEST_F(regex_sets, hold_an_end_that_something_follows_for_a_perhaps) {
    make_of({"a$\nb", "a$", "(a$|b)c"});
    EXPECT_EQ(match("a\nb"), "?--");
    EXPECT_EQ(match("bc"), "--?");
    EXPECT_EQ(match("a"), "-x-");
}

TEST_F(regex_sets, hold_a_start_that_something_stands_before_for_a_perhaps) {
    make_of({"a\n^b", "^a", "(^|b)a", "(a|^)c", "x*^a"});
    EXPECT_EQ(match("a\nb"), "?xx-?");
    EXPECT_EQ(match("ba"), "--x-?");
    EXPECT_EQ(match("c"), "---x-");
}

TEST_F(regex_sets, leave_to_the_engine_what_is_not_worth_or_not_the_same) {
    ASSERT_TRUE(add("[\x80-\xFF]"));
    EXPECT_FALSE(make());
    clear();
    ASSERT_TRUE(add("a{256}"));
    EXPECT_FALSE(make());
    clear();
    ASSERT_TRUE(add("(a{70}){70}")); // too long
    EXPECT_FALSE(make());
}

TEST_F(regex_sets, need_an_expression_and_take_so_many) {
    EXPECT_FALSE(make());
    for (uint32_t i = 0; i < REGEX_SET_LIMIT; i++)
        ASSERT_TRUE(add("a" + std::to_string(i)));
    EXPECT_TRUE(make());
    EXPECT_EQ(match("a1023").substr(1020), "---x");
    ASSERT_TRUE(add("b"));
    EXPECT_FALSE(make());
}

TEST_F(regex_sets, are_not_made_without_memory) {
    ASSERT_TRUE(add("a[bc]+"));
    uint32_t failed = 0;
    for (host.fail_allocation = 1; !make(); host.fail_allocation = ++failed + 1)
        ASSERT_LT(failed, 100U);
    EXPECT_GT(failed, 10U);
    host.fail_allocation = 0;
}

TEST_F(regex_sets, are_given_up_without_memory_for_states) {
    uint32_t failed = 0;
    for (;;) {
        make_of({"a[bc]+", "d$"});
        host.fail_allocation = ++failed;
        std::string all = match("xabc");
        if (host.fail_allocation != 0) break; // none was refused
        EXPECT_EQ(all, "given up");
        EXPECT_EQ(match("xabc"), all == "given up" ? match("xabc") : "x-");
    }
    EXPECT_GT(failed, 5U);
    host.fail_allocation = 0;
}

// What an automaton says must be what the engine says, for any pattern that it takes.
TEST_F(regex_sets, answer_as_the_engine_does) {
    int made = 0;
    const char *wanted = getenv("TN_PATTERNS");
    uint32_t count = wanted != nullptr ? static_cast<uint32_t>(atoi(wanted)) : 3'000;
    for (uint32_t seed = 0; seed < count; seed++) {
        random_regex random(seed);
        clear();
        if (!add(random.pattern()) || !make()) continue;
        made++;
        for (int text = 0; text < 12 && !HasFailure(); text++)
            expect_as_engine(random.text(10));
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
    EXPECT_GT(made, 1'500);
}

TEST_F(regex_sets, of_many_expressions_answer_as_the_engine_does) {
    for (uint32_t seed = 0; seed < 150; seed++) {
        random_regex random(seed);
        clear();
        while (regexes.size() < 1 + seed % 80)
            if (add(random.pattern()) && !make()) {
                tn_regfree(&regexes.back());
                regexes.pop_back();
                patterns.pop_back();
            }
        ASSERT_TRUE(make());
        for (int text = 0; text < 30 && !HasFailure(); text++)
            expect_as_engine(random.text(40));
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

TEST_F(regex_sets, run_over_records_as_if_each_were_a_text) {
    for (uint32_t seed = 0; seed < 1'500; seed++) {
        random_regex random(seed);
        clear();
        if (!add(random.pattern())) continue;
        record_cut cut = {static_cast<uint8_t>("\nab"[seed % 3]),
                          static_cast<record_separator>(seed / 3 % 3)};
        if (!make(&cut) || !regex_set_is_exact(set.get(), 0)) continue;
        std::string text;
        for (uint32_t lines = random.below(seed % 10 == 0 ? 2'000 : 12); lines > 0; lines--)
            text += random.text(6) + static_cast<char>(cut.separator);
        EXPECT_EQ(run(text), run_by_hand(text, cut))
            << "pattern \"" << patterns[0] << "\" in \"" << text << "\"";
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

TEST_F(regex_sets, run_over_a_first_record_with_the_separator_that_opens_it) {
    ASSERT_TRUE(add("^;a"));
    record_cut cut = {';', SEPARATOR_OPENS};
    ASSERT_TRUE(make(&cut));
    EXPECT_EQ(run("a;a;b;"), (std::vector<size_t>{3}));
    EXPECT_EQ(run("a;a;b;", true), (std::vector<size_t>{1, 3}));
}

// Patterns whose automaton has more states than there is room for.
TEST_F(regex_sets, answer_the_same_when_they_start_anew) {
    ASSERT_TRUE(add("a.{18}Z")); // each byte of the last 18 tells states apart, and none is ever found
    ASSERT_TRUE(add("abc"));
    ASSERT_TRUE(make());
    random_regex random(7);
    int given_up = 0;
    for (int i = 0; i < 400; i++) {
        std::string text = random.text(400);
        if (match(text) == "given up")
            given_up++;
        else
            expect_as_engine(text);
    }
    EXPECT_GT(given_up, 0); // it did not pay
}

TEST_F(regex_sets, run_on_when_they_start_anew) {
    ASSERT_TRUE(add("a.{14}b.?Z"));
    record_cut cut = {'\n', SEPARATOR_DROPPED};
    ASSERT_TRUE(make(&cut));
    random_regex random(11);
    size_t told = 0;
    for (int i = 0; i < 60; i++) {
        std::string text;
        for (int line = 0; line < 60; line++)
            text += random.text(120) + (line % 20 == 0 ? "a0123456789abcdbZ\n" : "\n");
        std::vector<size_t> found = run(text);
        if (found == std::vector<size_t>{SIZE_MAX}) continue;
        ASSERT_EQ(found, run_by_hand(text, cut));
        told += found.size();
    }
    EXPECT_GT(told, 0U);
}

TEST_F(regex_sets, share_a_budget) {
    std::vector<regex_set_guard> others;
    std::vector<std::string> expected;
    random_regex random(3);
    std::string text = random.text(3'000);
    for (int i = 0; i < 40; i++) {
        clear();
        ASSERT_TRUE(add("(a|b)" + std::to_string(i % 10) + "?(.{3}|[bc]{1,9}c)a"));
        ASSERT_TRUE(add("b[ab]{1,20}.c"));
        ASSERT_TRUE(make());
        std::string all = match(text);
        EXPECT_EQ(match(text), all);
        expected.push_back(all);
        others.push_back(std::move(set));
    }
    for (size_t i = 0; i < others.size(); i++) {
        set = std::move(others[i]);
        EXPECT_EQ(match(text), expected[i]);
        others[i] = std::move(set);
    }
}
