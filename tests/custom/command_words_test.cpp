#include "custom/command_words.h"

#include "custom/child_list.h"
#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

struct command_line : testing::Test {
    test_host host;

    ~command_line() override { EXPECT_EQ(host.blocks, 0); }

    // Each word in brackets, or what is wrong.
    std::string split(const char *command) {
        command_words *words = nullptr;
        if (auto *failure = split_command(command, &words)) return noted_failure(failure);
        command_words_guard guarded(words);
        std::string text;
        for (size_t i = 0; i < words->count; i++)
            text += std::string("[") + words->words[i] + "]";
        EXPECT_EQ(words->words[words->count], nullptr);
        return text;
    }
};

} // namespace

TEST_F(command_line, is_divided_at_blanks) {
    EXPECT_EQ(split("a"), "[a]");
    EXPECT_EQ(split("  /bin/df \t-k  / "), "[/bin/df][-k][/]");
    EXPECT_EQ(split("a b c d e f g h"), "[a][b][c][d][e][f][g][h]");
}

TEST_F(command_line, keeps_what_is_in_single_quotes) {
    EXPECT_EQ(split("a 'b  c' d"), "[a][b  c][d]");
    EXPECT_EQ(split("a '\\\"$x`' "), "[a][\\\"$x`]");
    EXPECT_EQ(split("a ''"), "[a][]");
}

TEST_F(command_line, keeps_blanks_in_double_quotes_and_takes_escapes_there) {
    EXPECT_EQ(split("a \"b  c\" d"), "[a][b  c][d]");
    EXPECT_EQ(split("a \"\\\" \\\\ \\$ \\` \\n '\""), "[a][\" \\ $ ` \\n ']");
    EXPECT_EQ(split("a \"\""), "[a][]");
}

TEST_F(command_line, keeps_the_character_behind_a_backslash) {
    EXPECT_EQ(split("a b\\ c \\' \\\" \\\\ \\n"), "[a][b c]['][\"][\\][n]");
}

TEST_F(command_line, joins_parts_without_a_blank_between_them) {
    EXPECT_EQ(split("a'b c'\"d e\"f\\ g"), "[ab cd ef g]");
    EXPECT_EQ(split("sh -c 'echo \"$HOME\" | wc'"), "[sh][-c][echo \"$HOME\" | wc]");
}

TEST_F(command_line, gives_no_meaning_to_what_a_shell_would_do_itself) {
    EXPECT_EQ(split("a $x * ~ | b > c ; d & #e"), "[a][$x][*][~][|][b][>][c][;][d][&][#e]");
}

TEST_F(command_line, that_is_not_closed_is_refused) {
    EXPECT_EQ(split("a 'b"), "A single quote in the command line has no end");
    EXPECT_EQ(split("a \"b"), "A double quote in the command line has no end");
    EXPECT_EQ(split("a \"b\\"), "A double quote in the command line has no end");
    EXPECT_EQ(split("a \"b\\\""), "A double quote in the command line has no end");
    EXPECT_EQ(split("a \\"), "A backslash ends the command line");
}

TEST_F(command_line, without_a_program_is_refused) {
    EXPECT_EQ(split(""), "The command line names no program");
    EXPECT_EQ(split(" \t"), "The command line names no program");
    EXPECT_EQ(split("'' a"), "The command line names no program");
}

TEST_F(command_line, is_refused_where_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_EQ(split("a"), "Out of memory");
}

TEST(child_list, gives_one_number_behind_the_other) {
    const char *text = "12 345 2147483647 ";
    EXPECT_EQ(next_child(&text), 12);
    EXPECT_EQ(next_child(&text), 345);
    EXPECT_EQ(next_child(&text), 2147483647);
    EXPECT_EQ(next_child(&text), 0);
}

TEST(child_list, ends_ahead_of_what_may_be_cut_off) {
    const char *text = "12 34";
    EXPECT_EQ(next_child(&text), 12);
    EXPECT_EQ(next_child(&text), 0);
    for (const char *none : {"", " ", "0 ", "x ", "-3 ", "2147483648 "})
        EXPECT_EQ(next_child(&none), 0) << none;
}
