#include "server/clause_check.h"

#include "fakes/test_host.h"
#include "platform/regex.h"

#include <gtest/gtest.h>

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
