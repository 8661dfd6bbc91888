#include "custom/conf_files.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

struct conf_files : testing::Test {
    test_host host;
    custom_check *checks = nullptr;
    agent_action *actions = nullptr;

    conf_files() { regex_host = &regex_ops_host; }
    ~conf_files() override {
        custom_checks_free(checks);
        agent_actions_free(actions);
        EXPECT_EQ(host.blocks, 0);
    }

    const char *parse(const std::string &text) {
        custom_checks_free(checks);
        checks = nullptr;
        return custom_checks_parse(text.data(), text.size(), &checks);
    }
    const char *parse_actions(const std::string &text) {
        agent_actions_free(actions);
        actions = nullptr;
        return agent_actions_parse(text.data(), text.size(), &actions);
    }
    bool matches(const char *line, std::string *value = nullptr) {
        tn_match found[2];
        if (tn_regexec(&checks->result_regex, line, 2, found) != 0) return false;
        if (value != nullptr)
            *value = std::string(line + found[1].start, static_cast<size_t>(found[1].end - found[1].start));
        return true;
    }
};

} // namespace

// ---- lines

TEST_F(conf_files, a_line_is_the_first_that_is_neither_empty_nor_a_comment) {
    const char *text = "\n# no\n  \t\r\nfirst \t\r\nsecond";
    conf_stream stream = {text, text + strlen(text)};
    char line[CONF_LINE_LENGTH + 1];
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_STREQ(line, "first");
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_STREQ(line, "second");
    EXPECT_FAILURE(conf_read_line(&stream, line, sizeof line), "Unable to read line");
}

TEST_F(conf_files, leading_blanks_belong_to_the_line) {
    const char *text = " # no comment\n";
    conf_stream stream = {text, text + strlen(text)};
    char line[CONF_LINE_LENGTH + 1];
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_STREQ(line, " # no comment");
}

TEST_F(conf_files, a_line_has_1023_characters_at_most) {
    EXPECT_SUCCESS(parse("[a]\ncommand=" + std::string(1015, 'x') + "\n"));
    EXPECT_EQ(strlen(checks->command), 1015U);
    EXPECT_FAILURE(parse("[a]\ncommand=" + std::string(1015, 'x') + "y\n"), "Expected equalsign");
    EXPECT_SUCCESS(parse("[a]\ncommand=" + std::string(1015, 'x') + "type=integer\n"));
    EXPECT_EQ(checks->type, CUSTOM_Integer) << "what is behind them is a line of its own";
}

TEST_F(conf_files, a_line_longer_than_the_buffer_goes_on_as_the_next) {
    std::string text = std::string(CONF_LINE_LENGTH, 'a') + "bc\n";
    conf_stream stream = {text.data(), text.data() + text.size()};
    char line[CONF_LINE_LENGTH + 1];
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_EQ(line, std::string(CONF_LINE_LENGTH, 'a'));
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_STREQ(line, "bc");
}

TEST_F(conf_files, a_line_that_just_fits_is_one) {
    std::string text = std::string(CONF_LINE_LENGTH, 'a') + "\nb";
    conf_stream stream = {text.data(), text.data() + text.size()};
    char line[CONF_LINE_LENGTH + 1];
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_EQ(line, std::string(CONF_LINE_LENGTH, 'a'));
    EXPECT_SUCCESS(conf_read_line(&stream, line, sizeof line));
    EXPECT_STREQ(line, "b");
}

TEST_F(conf_files, a_zero_byte_ends_what_counts_of_a_line) {
    EXPECT_SUCCESS(parse(std::string("[a]\ncommand=x \0y\n", 17)));
    EXPECT_STREQ(checks->command, "x");
}

// ---- custom checks

TEST_F(conf_files, a_section_with_a_command_alone_has_the_defaults) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\n"));
    ASSERT_NE(checks, nullptr);
    EXPECT_STREQ(checks->name, "a");
    EXPECT_STREQ(checks->command, "x");
    EXPECT_EQ(checks->type, CUSTOM_Boolean);
    EXPECT_EQ(checks->timeout, 10);
    EXPECT_EQ(checks->no_value_exitcode, 0U);
    EXPECT_EQ(checks->no_value_if_no_match, 0U);
    EXPECT_EQ(checks->unit, nullptr);
    EXPECT_FALSE(has_pattern(checks));
    EXPECT_EQ(checks->last_time, 0);
    EXPECT_EQ(checks->next, nullptr);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Custom check \"a\" found"));
}

TEST_F(conf_files, all_keys_of_a_check_are_read) {
    EXPECT_SUCCESS(parse("[disk use]\nexecfile=/bin/df -k /\ntimeout=7\nno_value_exitcode=3\n"
                         "no_value_if_no_match=yes\ntype=real\nunit=kB free\nresult_pattern=^x(.*)(y)$\n"));
    EXPECT_STREQ(checks->name, "disk use");
    EXPECT_STREQ(checks->command, "/bin/df -k /");
    EXPECT_EQ(checks->timeout, 7);
    EXPECT_EQ(checks->no_value_exitcode, 3U);
    EXPECT_EQ(checks->no_value_if_no_match, 1U);
    EXPECT_EQ(checks->type, CUSTOM_Real);
    EXPECT_STREQ(checks->unit, "kB free");
    EXPECT_EQ(checks->result_regex.re_nsub, 2U);
}

TEST_F(conf_files, each_word_for_a_type_has_its_type) {
    const std::pair<const char *, uint32_t> words[] = {{"boolean", CUSTOM_Boolean},
                                                       {"integer", CUSTOM_Integer},
                                                       {"real", CUSTOM_Real},
                                                       {"diff_integer", CUSTOM_DiffInteger},
                                                       {"diff_real", CUSTOM_DiffReal}};
    for (const auto &[word, type] : words) {
        EXPECT_SUCCESS(parse(std::string("[a]\ncommand=x\ntype=") + word));
        EXPECT_EQ(checks->type, type) << word;
    }
}

TEST_F(conf_files, a_timeout_of_zero_or_no_number_is_ten) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\ntimeout=0\n"));
    EXPECT_EQ(checks->timeout, 10);
    EXPECT_SUCCESS(parse("[a]\ncommand=x\ntimeout=abc\n"));
    EXPECT_EQ(checks->timeout, 10);
    EXPECT_SUCCESS(parse("[a]\ncommand=x\ntimeout=5\ntimeout=0\n"));
    EXPECT_EQ(checks->timeout, 10);
    EXPECT_SUCCESS(parse("[a]\ncommand=x\ntimeout=-3\n"));
    EXPECT_EQ(checks->timeout, -3);
}

TEST_F(conf_files, any_value_turns_no_value_if_no_match_on) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\nno_value_if_no_match=0\n"));
    EXPECT_EQ(checks->no_value_if_no_match, 1U);
}

TEST_F(conf_files, a_key_with_a_blank_behind_it_is_another_key) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\ntimeout =5\nTimeout=6\nTIMEOUT=7\nnobody=8\nnobody=\n"));
    EXPECT_EQ(checks->timeout, 10);
}

TEST_F(conf_files, a_value_starts_behind_its_blanks_and_may_hold_an_equals_sign) {
    EXPECT_SUCCESS(parse("[a]\ncommand= \t x=y z \n"));
    EXPECT_STREQ(checks->command, "x=y z");
}

TEST_F(conf_files, the_last_of_two_values_counts) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\nexecfile=y\nunit=a\nunit=b\nresult_pattern=(a)\n"
                         "result_pattern=(b)\ntype=integer\n"));
    EXPECT_STREQ(checks->command, "y");
    EXPECT_STREQ(checks->unit, "b");
    EXPECT_FALSE(matches("a"));
    EXPECT_TRUE(matches("b"));
}

TEST_F(conf_files, an_empty_value_is_refused_in_words_of_its_key) {
    const std::pair<const char *, const char *> rows[] = {
        {"execfile", "Command expected"},
        {"command", "Command expected"},
        {"timeout", "Timeout expected"},
        {"no_value_exitcode", "Expected integer"},
        {"no_value_if_no_match", "Expected integer"},
        {"type", "One of boolean, integer, real, diff_integer and diff_real expected"},
        {"unit", "Unit expected"},
        {"result_pattern", "Pattern expected"},
    };
    for (const auto &[key, text] : rows)
        EXPECT_FAILURE(parse(std::string("[a]\n") + key + "=  \n"), text);
}

TEST_F(conf_files, another_word_for_a_type_is_refused) {
    const char *expected = "One of boolean, integer, real, diff_integer and diff_real expected";
    EXPECT_FAILURE(parse("[a]\ntype=Integer\n"), expected);
    EXPECT_FAILURE(parse("[a]\ntype=int\n"), expected);
}

TEST_F(conf_files, a_line_without_an_equals_sign_is_refused) {
    EXPECT_FAILURE(parse("[a]\ncommand\n"), "Expected equalsign");
    EXPECT_FAILURE(parse("[a]\n # a comment with a blank ahead of it\n"), "Expected equalsign");
}

TEST_F(conf_files, a_head_needs_both_brackets_and_a_name) {
    EXPECT_FAILURE(parse("a=b\n"), "Expected [checkname], got a=b");
    EXPECT_FAILURE(parse(" [a]\n"), "Expected [checkname], got  [a]");
    EXPECT_FAILURE(parse("[a\n"), "Expected [checkname], got [a");
    EXPECT_FAILURE(parse("[\n"), "Expected [checkname], got [");
    EXPECT_FAILURE(parse("[a]\ncommand=x\n[b] c\n"), "Expected [checkname], got [b] c");
    EXPECT_FAILURE(parse("[]\n"), "Check without a name found");
}

TEST_F(conf_files, a_section_needs_a_command) {
    EXPECT_FAILURE(parse("[a]\ntimeout=3\n"), "No executeable is given for check");
    EXPECT_FAILURE(parse("[a]\n[b]\ncommand=x\n"), "No executeable is given for check");
    EXPECT_EQ(checks, nullptr);
}

TEST_F(conf_files, a_pattern_needs_a_group) {
    EXPECT_FAILURE(parse("[a]\nresult_pattern=abc\n"), "The result needs to be enclosed in parentheses");
    EXPECT_FAILURE(parse("[a]\nresult_pattern=\\(abc\\)\n"),
                   "The result needs to be enclosed in parentheses");
}

TEST_F(conf_files, a_pattern_that_cannot_be_compiled_is_told_in_79_characters) {
    static const regex_ops verbose = {
        .regcomp = [](tn_regex *, const char *) { return 7; },
        .regerror = [](int code, const tn_regex *, char *buffer, size_t size) -> size_t {
            EXPECT_EQ(code, 7);
            snprintf(buffer, size, "%s", std::string(100, 'w').c_str());
            return 101;
        },
    };
    regex_host = &verbose;
    EXPECT_FAILURE(parse("[a]\nresult_pattern=(\n"), std::string(79, 'w'));
    EXPECT_FAILURE(parse("[a]\ncommand=x\ntype=integer\n"), std::string(79, 'w'));
    regex_host = &regex_ops_host;
    EXPECT_NE(parse("[a]\nresult_pattern=(\n"), nullptr);
}

TEST_F(conf_files, the_standard_pattern_of_an_integer_is_for_whole_numbers) {
    for (const char *type : {"integer", "diff_integer"}) {
        EXPECT_SUCCESS(parse(std::string("[a]\ncommand=x\ntype=") + type));
        std::string value;
        EXPECT_TRUE(matches("Result: 12", &value));
        EXPECT_EQ(value, "12");
        EXPECT_TRUE(matches("Result:12 "));
        EXPECT_FALSE(matches("Result: 12.5"));
        EXPECT_FALSE(matches("Result: -12"));
        EXPECT_FALSE(matches("result: 12"));
        EXPECT_FALSE(matches("The Result: 12"));
        EXPECT_FALSE(matches("Result: 12 of"));
    }
}

TEST_F(conf_files, the_standard_pattern_of_a_real_demands_a_point) {
    for (const char *type : {"real", "diff_real"}) {
        EXPECT_SUCCESS(parse(std::string("[a]\ncommand=x\ntype=") + type));
        std::string value;
        EXPECT_TRUE(matches("Result: 12.5", &value));
        EXPECT_EQ(value, "12.5");
        EXPECT_TRUE(matches("Result: 12."));
        EXPECT_FALSE(matches("Result: 12"));
        EXPECT_FALSE(matches("Result: .5"));
    }
}

TEST_F(conf_files, a_pattern_of_a_boolean_is_compiled) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\nresult_pattern=(x)\n"));
    EXPECT_TRUE(has_pattern(checks));
}

TEST_F(conf_files, a_list_runs_against_its_file) {
    EXPECT_SUCCESS(parse("[a]\ncommand=x\n[b]\ncommand=y\n"));
    EXPECT_STREQ(checks->name, "b");
    EXPECT_STREQ(checks->next->name, "a");
}

TEST_F(conf_files, what_was_read_ahead_of_a_failure_stays_in_the_list) {
    EXPECT_FAILURE(parse("[a]\ncommand=x\n[b]\ncommand\n"), "Expected equalsign");
    ASSERT_NE(checks, nullptr);
    EXPECT_STREQ(checks->name, "a");
    EXPECT_EQ(checks->next, nullptr);
}

TEST_F(conf_files, a_file_of_nothing_or_of_comments_is_in_order) {
    EXPECT_SUCCESS(parse(""));
    EXPECT_SUCCESS(parse("# nothing\n\n  \n"));
    EXPECT_EQ(checks, nullptr);
    EXPECT_SUCCESS(parse_actions("# nothing\n"));
    EXPECT_EQ(actions, nullptr);
}

// ---- actions

TEST_F(conf_files, an_action_has_a_name_and_a_command) {
    EXPECT_SUCCESS(parse_actions("[a b]\ncommand=x y\ntimeout=3\n[c]\nexecfile=z\n"));
    EXPECT_STREQ(actions->name, "c");
    EXPECT_STREQ(actions->command, "z");
    EXPECT_STREQ(actions->next->name, "a b");
    EXPECT_STREQ(actions->next->command, "x y");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "AgentAction \"a b\" found"));
}

TEST_F(conf_files, a_bad_action_is_refused_in_words_of_actions) {
    EXPECT_FAILURE(parse_actions("a=b\n"), "Expected \"[actioname]\", got \"a=b\"");
    EXPECT_FAILURE(parse_actions("[a\n"), "Expected \"[actioname]\", got \"[a\"");
    EXPECT_FAILURE(parse_actions("[]\n"), "Action without a name found");
    EXPECT_FAILURE(parse_actions("[a]\ncommand\n"), "Expected equalsign");
    EXPECT_FAILURE(parse_actions("[a]\nwhatever\n"), "Expected equalsign");
    EXPECT_FAILURE(parse_actions("[a]\ncommand=\n"), "Executable name expected");
    EXPECT_FAILURE(parse_actions("[a]\nexecfile= \n"), "Executable name expected");
    EXPECT_FAILURE(parse_actions("[a]\nunit=\n"), "No executeable is given for action");
    EXPECT_FAILURE(parse_actions("[a]\nexecfile=x\n[b]\n"), "No executeable is given for action");
    EXPECT_STREQ(actions->name, "a");
}

// ---- files and memory

TEST_F(conf_files, a_file_is_read_and_closed) {
    host.write_file("/etc/custom", "[a]\r\ncommand=x\r\n");
    EXPECT_SUCCESS(custom_checks_read("/etc/custom", &checks));
    EXPECT_STREQ(checks->command, "x");
    EXPECT_SUCCESS(agent_actions_read("/etc/custom", &actions));
    EXPECT_STREQ(actions->command, "x");
    EXPECT_TRUE(host.open_files.empty());
}

TEST_F(conf_files, a_file_that_cannot_be_opened_is_told) {
    EXPECT_FAILURE(custom_checks_read("/nowhere", &checks), "Cannot open file");
    EXPECT_FAILURE(agent_actions_read("/nowhere", &actions), "Cannot open file");
    host.write_file("/etc/custom", "");
    EXPECT_FAILURE(custom_checks_read("/etc", &checks), "Cannot open file");
    host.broken["open"]["/etc/custom"] = 13;
    EXPECT_FAILURE(custom_checks_read("/etc/custom", &checks), "Cannot open file");
}

TEST_F(conf_files, a_file_beyond_the_limit_cannot_be_opened) {
    host.write_file("/etc/custom", std::string(CONF_FILE_LIMIT + 1, '\n'));
    EXPECT_FAILURE(custom_checks_read("/etc/custom", &checks), "Cannot open file");
    host.write_file("/etc/custom", std::string(CONF_FILE_LIMIT, '\n'));
    EXPECT_SUCCESS(custom_checks_read("/etc/custom", &checks));
}

TEST_F(conf_files, memory_that_is_out_is_told_and_leaves_nothing) {
    host.fail_allocation = 1;
    EXPECT_FAILURE(parse("[a]\ncommand=x\n"), "Cannot allicate memory for buffer");
    for (uint32_t n = 2; n <= 5; n++) {
        host.fail_allocation = n;
        EXPECT_FAILURE(parse("[a]\ncommand=x\nunit=y\n"),
                       "Out of memory allocating a custom_check structure");
        EXPECT_EQ(checks, nullptr);
    }
    for (uint32_t n = 2; n <= 4; n++) {
        host.fail_allocation = n;
        EXPECT_FAILURE(parse_actions("[a]\ncommand=x\n"),
                       "Out of memory allocating a agent_action structure");
        EXPECT_EQ(actions, nullptr);
    }
}
