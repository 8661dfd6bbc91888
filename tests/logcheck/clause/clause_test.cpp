#include "logcheck/clause.h"

#include "fakes/test_host.h"
#include "logcheck/clause/scripted_regex.h"
#include "platform/agent_log.h"

#include <gtest/gtest.h>

// Parses with the scripted engine, so that trees can be read.
class clause_parser : public testing::Test {
protected:
    clause_parser() { scripted_regex::install(); }
    ~clause_parser() override {
        clause.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    // The failure, "(none)" without one. The tree, or what there is of it, is in `clause`.
    std::string parse(const std::string &text) {
        log_check_cond *made = nullptr;
        std::string failure = noted_failure(log_clause_parse(text.c_str(), &made));
        clause.reset(made);
        return failure;
    }

    // The tree of a sound clause.
    std::string tree(const std::string &text) {
        EXPECT_EQ(parse(text), "(none)") << text;
        return print_tree(clause.get());
    }

    test_host host;
    log_clause_guard clause;
};

TEST_F(clause_parser, says_at_trace_level_that_it_reads) {
    parse("'a'");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Reading log check clauses string"));
}

TEST_F(clause_parser, binds_and_tighter_than_or) {
    EXPECT_EQ(tree("'a' and 'b' or 'c'"), "or(and(a,b),c)");
    EXPECT_EQ(tree("'a' or 'b' and 'c'"), "or(a,and(b,c))");
}

TEST_F(clause_parser, binds_not_tightest) {
    EXPECT_EQ(tree("not 'a' and 'b'"), "and(not(a),b)");
    EXPECT_EQ(tree("not 'a' or 'b'"), "or(not(a),b)");
}

TEST_F(clause_parser, groups_to_the_right) {
    EXPECT_EQ(tree("'a' or 'b' or 'c'"), "or(a,or(b,c))");
    EXPECT_EQ(tree("'a' and 'b' and 'c' and 'd'"), "and(a,and(b,and(c,d)))");
}

TEST_F(clause_parser, takes_any_number_of_nots) {
    EXPECT_EQ(tree("not not 'a'"), "not(not(a))");
    EXPECT_EQ(tree("notnotnot'a'"), "not(not(not(a)))");
}

TEST_F(clause_parser, has_no_node_for_parentheses) {
    EXPECT_EQ(tree("(('a'))"), "a");
    EXPECT_EQ(tree("('a' or 'b') and not ('c' or 'd')"), "and(or(a,b),not(or(c,d)))");
}

TEST_F(clause_parser, needs_no_blanks_around_keywords) {
    EXPECT_EQ(tree("not'x'"), "not(x)");
    EXPECT_EQ(tree("'x'or'y'and'z'"), "or(x,and(y,z))");
    EXPECT_EQ(tree("not('x')or('y')"), "or(not(x),y)");
}

TEST_F(clause_parser, knows_lower_case_keywords_alone) {
    EXPECT_EQ(parse("NOT 'a'"), "line 0 column 1: Extra input");
    EXPECT_EQ(parse("'a' OR 'b'"), "line 0 column 5: Extra input");
    EXPECT_EQ(parse("'a' And 'b'"), "line 0 column 5: Extra input");
}

TEST_F(clause_parser, takes_two_quotes_for_one) {
    EXPECT_EQ(tree("'it''s'"), "it's");
    EXPECT_EQ(tree("''''"), "'");
    EXPECT_EQ(tree("'a''''b'"), "a''b");
}

TEST_F(clause_parser, takes_an_empty_string) {
    EXPECT_EQ(tree("''"), "");
}

TEST_F(clause_parser, passes_all_else_in_a_string_through) {
    EXPECT_EQ(tree("'a\\.\\'"), "a\\.\\");
    EXPECT_EQ(tree("'x # no comment (and) not\n\t\x80'"), "x # no comment (and) not\n\t\x80");
}

TEST_F(clause_parser, keeps_nothing_of_a_longer_string_before) {
    EXPECT_EQ(tree("'longer' or 'x'"), "or(longer,x)");
}

TEST_F(clause_parser, takes_blanks_and_comments_between_all_tokens) {
    EXPECT_EQ(tree(" #1\n\t(\r\n#2\n not #'3'\n'a'#4)\n)\x01\x1F\vor # 'x'\n\n'b' "), "or(not(a),b)");
}

TEST_F(clause_parser, takes_a_comment_or_blank_at_the_end) {
    EXPECT_EQ(tree("'a' # and 'b'"), "a");
    EXPECT_EQ(tree("'a'#"), "a");
    EXPECT_EQ(tree("'a' \n\t "), "a");
}

TEST_F(clause_parser, takes_characters_above_127_for_no_blanks) {
    EXPECT_EQ(parse("'a'\x80"), "line 0 column 4: Extra input");
    EXPECT_EQ(parse("'a'\xFF'b'"), "line 0 column 4: Extra input");
}

TEST_F(clause_parser, refuses_input_behind_the_clause) {
    EXPECT_EQ(parse("'a' 'b'"), "line 0 column 5: Extra input");
    EXPECT_EQ(parse("'a')"), "line 0 column 4: Extra input");
}

TEST_F(clause_parser, reports_any_error_ahead_of_the_end_as_extra_input) {
    EXPECT_EQ(parse("'a' an 'b'"), "line 0 column 7: Extra input");
    EXPECT_EQ(parse("'a' o'b'"), "line 0 column 6: Extra input");
    EXPECT_EQ(parse("nor 'a'"), "line 0 column 3: Extra input");
    EXPECT_EQ(parse("('a' 'b'"), "line 0 column 6: Extra input");
    EXPECT_EQ(parse("'!' and 'b'"), "line 0 column 4: Extra input");
    EXPECT_EQ(parse("'!' "), "line 0 column 4: Extra input");
    EXPECT_EQ(parse("and 'b'"), "line 0 column 1: Extra input");
}

TEST_F(clause_parser, expects_a_condition) {
    EXPECT_EQ(parse(""), "line 0 column 1: Expected condition");
    EXPECT_EQ(parse("("), "line 0 column 2: Expected condition");
    EXPECT_EQ(parse("not"), "line 0 column 4: Expected condition");
    EXPECT_EQ(parse("'a' or"), "line 0 column 7: Expected condition");
    EXPECT_EQ(parse("'a' and # x"), "line 0 column 12: Expected condition");
}

TEST_F(clause_parser, expects_the_closing_parenthesis) {
    EXPECT_EQ(parse("('a'"), "line 0 column 5: ')' expected");
    EXPECT_EQ(parse("(('a') "), "line 0 column 8: ')' expected");
}

TEST_F(clause_parser, expects_the_rest_of_a_keyword) {
    EXPECT_EQ(parse("n"), "line 0 column 2: not expected");
    EXPECT_EQ(parse("no"), "line 0 column 3: not expected");
    EXPECT_EQ(parse("'a' a"), "line 0 column 6: and expected");
    EXPECT_EQ(parse("'a' an"), "line 0 column 7: and expected");
    EXPECT_EQ(parse("'a' o"), "line 0 column 6: or expected");
}

TEST_F(clause_parser, refuses_a_string_without_an_end) {
    EXPECT_EQ(parse("'a"), "line 0 column 3: Unterminated character string");
    EXPECT_EQ(parse("'a''"), "line 0 column 5: Unterminated character string");
    EXPECT_EQ(parse("'"), "line 0 column 2: Unterminated character string");
}

TEST_F(clause_parser, counts_lines_from_0_and_columns_from_1) {
    EXPECT_EQ(parse("'a'\n  'b'"), "line 1 column 3: Extra input");
    EXPECT_EQ(parse("'a'\nx"), "line 1 column 1: Extra input");
    EXPECT_EQ(parse("'a'\n\n("), "line 2 column 1: Extra input");
    EXPECT_EQ(parse("\n"), "line 1 column 1: Expected condition");
    EXPECT_EQ(parse("\t\r("), "line 0 column 4: Expected condition");
    EXPECT_EQ(parse("# x\n("), "line 1 column 2: Expected condition");
}

TEST_F(clause_parser, counts_lines_within_strings) {
    EXPECT_EQ(parse("'a\nb' x"), "line 1 column 4: Extra input");
    EXPECT_EQ(parse("'a\n\nb"), "line 2 column 2: Unterminated character string");
}

TEST_F(clause_parser, reports_the_engines_words_behind_the_closing_quote) {
    EXPECT_EQ(parse("'!'"), "line 0 column 4: Bad pattern 8");
    EXPECT_EQ(parse("'a' or\nnot '!'"), "line 1 column 8: Bad pattern 8");
}

TEST_F(clause_parser, cuts_the_engines_words_at_80_bytes) {
    scripted_regex::words = std::string(100, 'w');
    EXPECT_EQ(parse("'!'"), "line 0 column 4: " + std::string(79, 'w'));
}

TEST_F(clause_parser, leaves_what_there_is_of_the_tree) {
    parse("not");
    EXPECT_EQ(print_tree(clause.get()), "not(-)");
    parse("'a' or 'b' and");
    EXPECT_EQ(print_tree(clause.get()), "or(a,and(b,-))");
    parse("'a' and ('!'");
    EXPECT_EQ(print_tree(clause.get()), "and(a,none)");
    parse("'a' an");
    EXPECT_EQ(print_tree(clause.get()), "a");
    parse("");
    EXPECT_EQ(print_tree(clause.get()), "-");
}

TEST_F(clause_parser, takes_the_deepest_parentheses_of_a_long_clause) {
    EXPECT_EQ(tree(std::string(510, '(') + "'a'" + std::string(510, ')')), "a");
    EXPECT_EQ(parse(std::string(1024, '(')), "line 0 column 1025: Expected condition");
}

TEST_F(clause_parser, takes_the_longest_rows_of_operators) {
    std::string nots, alternatives;
    for (int i = 0; i < 340; i++)
        nots += "not";
    for (int i = 0; i < 204; i++)
        alternatives += "'a'or";
    EXPECT_EQ(parse(nots + "'a'"), "(none)");
    EXPECT_TRUE(log_clause_match("a", clause.get()));
    EXPECT_EQ(parse(alternatives + "'b'"), "(none)");
    EXPECT_TRUE(log_clause_match("b", clause.get()));
    EXPECT_FALSE(log_clause_match("c", clause.get()));
}

TEST_F(clause_parser, ends_the_process_when_memory_is_out) {
    // The token buffer, the first leaf, four for its pattern, then the "and" node, the "not" node, the second
    // leaf.
    for (uint32_t n : {1U, 2U, 7U, 8U, 9U}) {
        log_check_cond *made = nullptr;
        host.fail_allocation = n;
        expect_fatal([&] { (void)log_clause_parse("'a' and not 'b'", &made); }, "Out of memory");
        log_clause_free(made);
        EXPECT_EQ(host.blocks, 0) << n;
    }
}

TEST_F(clause_parser, reports_a_pattern_that_no_memory_holds_in_the_engines_words) {
    host.fail_allocation = 3;
    EXPECT_EQ(parse("'a'"), "line 0 column 4: Bad pattern 2");
}

TEST_F(clause_parser, empties_the_slot_of_its_caller) {
    log_check_cond other = {};
    log_check_cond *slot = &other;
    EXPECT_FAILURE(log_clause_parse("", &slot), "line 0 column 1: Expected condition");
    EXPECT_EQ(slot, nullptr);
}

class clause_matching : public clause_parser {
protected:
    bool matches(const std::string &text, const char *entry) {
        EXPECT_EQ(parse(text), "(none)") << text;
        scripted_regex::searches.clear();
        return log_clause_match(entry, clause.get());
    }
    using names = std::vector<std::string>;
};

TEST_F(clause_matching, asks_whether_the_pattern_occurs_anywhere) {
    EXPECT_TRUE(matches("'b'", "abc"));
    EXPECT_FALSE(matches("'x'", "abc"));
}

TEST_F(clause_matching, negates_with_not) {
    EXPECT_FALSE(matches("not 'b'", "abc"));
    EXPECT_TRUE(matches("not 'x'", "abc"));
    EXPECT_TRUE(matches("not not 'b'", "abc"));
}

TEST_F(clause_matching, wants_both_sides_of_and) {
    EXPECT_TRUE(matches("'a' and 'b'", "ab"));
    EXPECT_FALSE(matches("'a' and 'b'", "a"));
    EXPECT_FALSE(matches("'a' and 'b'", "b"));
}

TEST_F(clause_matching, wants_either_side_of_or) {
    EXPECT_TRUE(matches("'a' or 'b'", "a"));
    EXPECT_TRUE(matches("'a' or 'b'", "b"));
    EXPECT_FALSE(matches("'a' or 'b'", "c"));
}

TEST_F(clause_matching, leaves_the_right_side_where_the_left_one_decides) {
    matches("'aa' and 'bb'", "bb");
    EXPECT_EQ(scripted_regex::searches, names{"aa"});
    matches("'aa' or 'bb'", "aa");
    EXPECT_EQ(scripted_regex::searches, names{"aa"});
}

TEST_F(clause_matching, goes_from_left_to_right) {
    matches("'aa' and 'bb'", "aabb");
    EXPECT_EQ(scripted_regex::searches, (names{"aa", "bb"}));
    matches("'aa' or 'bb'", "bb");
    EXPECT_EQ(scripted_regex::searches, (names{"aa", "bb"}));
}

TEST_F(clause_matching, logs_a_failing_search_and_takes_it_for_no_match) {
    EXPECT_FALSE(matches("'?'", "?"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "regexec returned error 12"));
}

TEST_F(clause_matching, takes_a_failing_search_under_not_for_a_match) {
    EXPECT_TRUE(matches("not '?'", "?"));
}

TEST_F(clause_matching, logs_no_error_for_a_mere_miss) {
    matches("'x'", "a");
    EXPECT_EQ(host.count_logged("regexec"), 0);
}

TEST_F(clause_matching, logs_an_unknown_type) {
    log_check_cond unknown = {.type = 5}, cleared = {};
    EXPECT_FALSE(log_clause_match("a", &unknown));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Uninitialized log_check_cond"));
    EXPECT_FALSE(log_clause_match("a", &cleared));
    EXPECT_EQ(host.count_logged("Uninitialized log_check_cond"), 2);
}

TEST_F(clause_matching, takes_an_empty_slot_for_an_unknown_type) {
    EXPECT_FALSE(log_clause_match("a", nullptr));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Uninitialized log_check_cond"));
}

TEST_F(clause_matching, can_be_asked_again_and_again) {
    ASSERT_EQ(parse("'a' and not 'b'"), "(none)");
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(log_clause_match("a", clause.get()));
        EXPECT_FALSE(log_clause_match("ab", clause.get()));
    }
}

// With the engine of this host.
class clause_engine : public clause_matching {
protected:
    clause_engine() { regex_host = &regex_ops_host; }
};

TEST_F(clause_engine, takes_extended_expressions) {
    EXPECT_TRUE(matches("'^(ab)+c?$'", "abab"));
    EXPECT_TRUE(matches("'error|fail'", "it failed"));
    EXPECT_FALSE(matches("'a{3}'", "aa"));
}

TEST_F(clause_engine, tells_case) {
    EXPECT_FALSE(matches("'error'", "ERROR"));
}

TEST_F(clause_engine, takes_a_line_feed_for_nothing_special) {
    EXPECT_TRUE(matches("'a.b'", "a\nb"));
    EXPECT_FALSE(matches("'^b'", "a\nb"));
}

TEST_F(clause_engine, passes_a_backslash_to_the_expression) {
    EXPECT_TRUE(matches("'a\\.b'", "a.b"));
    EXPECT_FALSE(matches("'a\\.b'", "axb"));
}

TEST_F(clause_engine, knows_word_boundaries) {
    EXPECT_TRUE(matches("'[[:<:]]disk[[:>:]]'", "a disk is full"));
    EXPECT_FALSE(matches("'[[:<:]]disk[[:>:]]'", "diskless"));
}

TEST_F(clause_engine, refuses_an_open_group_with_its_own_words) {
    char words[80];
    tn_regex regex;
    tn_regerror(tn_regcomp(&regex, "("), &regex, words, sizeof words);
    EXPECT_EQ(parse("'('"), "line 0 column 4: " + std::string(words));
    EXPECT_EQ(parse("'(' or 'a'"), "line 0 column 4: Extra input");
}

TEST_F(clause_engine, logs_a_search_without_an_expression) {
    parse("'('");
    EXPECT_FALSE(log_clause_match("(", clause.get()));
    EXPECT_TRUE(host.logged(LOG_ERROR, "regexec returned error 2"));
}

TEST(log_clause_free, takes_absent) {
    test_host host;
    log_clause_free(nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(log_clause_free, takes_empty_slots) {
    test_host host;
    for (uint32_t type : {COND_REGEX, COND_NOT, COND_AND, COND_OR}) {
        auto *cond = heap_new<log_check_cond>();
        cond->type = type;
        log_clause_free(cond);
        EXPECT_EQ(host.blocks, 0);
    }
}
