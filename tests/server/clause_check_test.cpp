#include "server/clause_check.h"

#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "platform/regex.h"

#include <gtest/gtest.h>
#include <random>

namespace {

class check_clause_of : public testing::Test {
protected:
    check_clause_of() { regex_host = &regex_ops_host; }

    static std::string told(const char *failure) { return failure == nullptr ? "(none)" : failure; }
    static std::string clause(const std::string &text) { return told(check_clause(text)); }
    static std::string separator(const std::string &text) { return told(check_separator(text)); }
};

constexpr const char *NO_PRIMARY = "a text in single quotes, \"not\" or a parenthesis is missing here";

} // namespace

TEST_F(check_clause_of, lets_pass_what_agents_take) {
    for (const char *text :
         {"'a'", "'a' and 'b' or 'c'", "not 'a'", "not not'a'", "('a')", "(('a' or 'b') and not ('c'))",
          "'x'or'y'", "'it''s'", "'''a'''", "''", "\t'a'\r\n and # a comment\n 'b' # another", "'a\nb'",
          "'#'", "'[[:<:]]error[[:>:]]'", "# ahead\n'a'"})
        EXPECT_EQ(clause(text), "(none)") << text;
}

TEST_F(check_clause_of, needs_something_to_match) {
    EXPECT_EQ(clause(""), "column 1: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("# nothing"), "column 10: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("'a' and"), "column 8: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("not"), "column 4: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("()"), "column 2: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("error"), "column 1: " + std::string(NO_PRIMARY));
    EXPECT_EQ(clause("\"a\""), "column 1: " + std::string(NO_PRIMARY));
}

TEST_F(check_clause_of, needs_closed_quotes_and_parentheses) {
    EXPECT_EQ(clause("'a"), "column 1: a quote is not closed");
    EXPECT_EQ(clause("'a' or 'b''"), "column 8: a quote is not closed");
    EXPECT_EQ(clause("'"), "column 1: a quote is not closed");
    EXPECT_EQ(clause("('a'"), "column 5: a parenthesis is not closed");
    EXPECT_EQ(clause("('a' # )"), "column 9: a parenthesis is not closed");
    EXPECT_EQ(clause("'a')"), "column 4: an operator is missing here");
}

TEST_F(check_clause_of, needs_whole_operators) {
    EXPECT_EQ(clause("'a' 'b'"), "column 5: an operator is missing here");
    EXPECT_EQ(clause("'a' an 'b'"), "column 5: \"and\" is meant here");
    EXPECT_EQ(clause("'a' o 'b'"), "column 5: \"or\" is meant here");
    EXPECT_EQ(clause("no 'b'"), "column 1: \"not\" is meant here");
    EXPECT_EQ(clause("'a' AND 'b'"), "column 5: an operator is missing here");
}

TEST_F(check_clause_of, needs_sound_expressions) {
    EXPECT_EQ(clause("'a' and '('").substr(0, 10), "column 9: ");
    EXPECT_EQ(clause("'[a'").substr(0, 10), "column 1: ");
    EXPECT_NE(clause("'a{2,1}'"), "(none)");
}

TEST_F(check_clause_of, takes_the_first_of_several_faults) {
    EXPECT_EQ(clause("'(' and"), clause("'('"));
}

TEST_F(check_clause_of, is_as_deep_as_a_clause_may_be) {
    std::string deep(511, '(');
    EXPECT_EQ(clause(deep + "'a'" + std::string(511, ')')), "(none)");
}

TEST_F(check_clause_of, lets_separators_pass) {
    for (const char *text : {"\n", "\r?\n", "\r\n|\n", "---+", " *\n", "\n(\t|$)"})
        EXPECT_EQ(separator(text), "(none)") << text;
}

TEST_F(check_clause_of, refuses_a_separator_that_matches_nothing) {
    for (const char *text : {"\n*", "x*", "^", "$", "(\n|)", "[[:<:]]", "[[:>:]]", "\n?"})
        EXPECT_EQ(separator(text), "it can match nothing at all") << text;
    EXPECT_EQ(separator(""), "it is empty");
}

TEST_F(check_clause_of, refuses_a_separator_that_is_no_expression) {
    EXPECT_NE(separator("("), "(none)");
    EXPECT_NE(separator("[a"), "(none)");
}

// Against the agent's own reading

namespace {

constexpr const char *PIECES[] = {"'a'", "'", "''",    "not", "and", "or", "(",
                                  ")",   " ", "# x\n", "#",   "n",   "x",  "'('"};

class clauses : public testing::Test {
protected:
    clauses() { regex_host = &regex_ops_host; }

    static void expect_one_opinion(const std::string &clause) {
        log_check_cond *parsed = nullptr;
        bool agent_takes_it = log_clause_parse(clause.c_str(), &parsed) == nullptr;
        log_clause_free(parsed);
        EXPECT_EQ(check_clause(clause) == nullptr, agent_takes_it) << "\"" << clause << "\"";
    }
    // All sequences of up to `length` pieces behind these.
    static void expect_one_opinion_of_all(const std::string &start, int length) {
        expect_one_opinion(start);
        if (length == 0) return;
        for (const char *piece : PIECES)
            expect_one_opinion_of_all(start + piece, length - 1);
    }

    test_host host;
};

} // namespace

TEST_F(clauses, that_are_short_pass_where_agents_take_them) {
    expect_one_opinion_of_all("", 4);
}

TEST_F(clauses, at_random_pass_where_agents_take_them) {
    std::mt19937 dice(20261121);
    int sound = 0;
    for (int i = 0; i < 20000; i++) {
        // Pieces of a sound clause in the order of its grammar, some of them replaced.
        std::string clause;
        for (size_t terms = 1 + dice() % 4; terms > 0; terms--) {
            bool in_parentheses = dice() % 3 == 0;
            clause += std::string(dice() % 4 == 0 ? "not " : "") + (in_parentheses ? "(" : "");
            clause += dice() % 16 == 0 ? PIECES[dice() % std::size(PIECES)] : "'a'";
            clause += std::string(in_parentheses ? ")" : "") + (dice() % 5 == 0 ? "# x\n" : " ");
            if (terms > 1)
                clause += dice() % 16 == 0 ? PIECES[dice() % std::size(PIECES)] : dice() % 2 ? "and " : "or";
        }
        expect_one_opinion(clause);
        sound += check_clause(clause) == nullptr;
    }
    EXPECT_GT(sound, 5000);
    EXPECT_LT(sound, 19000);
}
