#include "core/start_fixture.h"
#include "platform/version.h"

using options = start_fixture;

static const std::string USAGE = "Usage:  tnagent  [-v][-V] [-f <config file>]\n"
                                 "                 [-c <name>] [-d <domain>]\n"
                                 "                 [-s <server name>] [-p <server port>]\n"
                                 "                 [-t <variables file>]\n"
                                 "                 [-l <log level>]\n"
                                 "                 [-m <log file>]\n"
                                 "                 [--down[=<minutes>]] --quiet\n";

TEST_F(options, version_is_printed_on_stderr_with_status_0) {
    EXPECT_EQ(status_of({"-V", "-x"}), 0);
    EXPECT_EQ(errors, std::string("\n Tarnix Agent : ") + version_text + "\n\n");
}

TEST_F(options, unknown_option_prints_the_usage_with_status_0) {
    for (const char *word : {"-x", "--help", "extra", "--down5", "-cname"}) {
        errors.clear();
        EXPECT_EQ(status_of({word}), 0) << word;
        EXPECT_EQ(errors, USAGE) << word;
    }
}

TEST_F(options, value_option_at_the_end_prints_the_usage_with_status_0) {
    for (const char *word : {"-c", "-s", "-d", "-p", "-l", "-t", "-f", "-m"}) {
        errors.clear();
        EXPECT_EQ(status_of({"-v", word}), 0) << word;
        EXPECT_EQ(errors, USAGE) << word;
    }
}

TEST_F(options, parent_pipes_without_both_numbers_print_the_usage) {
    EXPECT_EQ(status_of({"--parent-pipes", "3"}), 0);
    EXPECT_EQ(errors, USAGE);
}

TEST_F(options, parent_pipes_take_two_words) {
    command_line line;
    const char *argv[] = {"tnagent", "--parent-pipes", "-3", "x", "-c", "name", nullptr};
    parse_options(6, const_cast<char **>(argv), &line);
    EXPECT_STREQ(line.name, "name");
}

TEST_F(options, a_value_may_look_like_an_option) {
    command_line line;
    const char *argv[] = {"tnagent", "-c", "-v", nullptr};
    parse_options(3, const_cast<char **>(argv), &line);
    EXPECT_STREQ(line.name, "-v");
    EXPECT_EQ(file_log_flag, 1U);
}

struct down_case {
    const char *word;
    int32_t minutes;
};

TEST_F(options, downtime_minutes) {
    for (const down_case &row : {down_case{"--down", 30},
                                 {"--down=7", 7},
                                 {"--down=0x10", 16},
                                 {"--down=010", 8},
                                 {"--down=abc", 1},
                                 {"--down=0", 1},
                                 {"--down=", 1}}) {
        options_reset();
        command_line line;
        const char *argv[] = {"tnagent", row.word, nullptr};
        parse_options(2, const_cast<char **>(argv), &line);
        EXPECT_EQ(down_minutes, row.minutes) << row.word;
        EXPECT_EQ(down_flag, 1U);
        EXPECT_EQ(file_log_flag, 0U);
    }
}

TEST_F(options, regression_test_takes_four_numbers_whatever_they_look_like) {
    command_line line;
    const char *argv[] = {"tnagent", "--regression-test", "3", "1000000", "-2", "0x10", "-v", nullptr};
    parse_options(7, const_cast<char **>(argv), &line);
    EXPECT_EQ(regression_flag, 1U);
    EXPECT_EQ(fake_device_count, 3U);
    EXPECT_EQ(fake_start_time, 1000000);
    EXPECT_EQ(fake_end_time, -2);
    EXPECT_EQ(fake_repeat_count, 16U);
    EXPECT_EQ(file_log_flag, 0U); // the fifth word is an option again
}

TEST_F(options, regression_test_eats_the_option_behind_it) {
    command_line line;
    const char *argv[] = {"tnagent", "--regression-test", "-v", nullptr};
    parse_options(3, const_cast<char **>(argv), &line);
    EXPECT_EQ(fake_device_count, 0U);
    EXPECT_EQ(file_log_flag, 1U);
}

TEST_F(options, regression_test_as_the_last_word_keeps_the_defaults) {
    command_line line;
    const char *argv[] = {"tnagent", "--fake-results", "--regression-test", nullptr};
    parse_options(3, const_cast<char **>(argv), &line);
    EXPECT_EQ(fake_device_count, 1U);
    EXPECT_EQ(fake_start_time, -1);
    EXPECT_EQ(fake_end_time, -1);
    EXPECT_EQ(fake_repeat_count, 1000U);
    EXPECT_EQ(fake_results_flag, 1U);
}

TEST_F(options, quiet_and_upgrade_failed_are_flags) {
    command_line line;
    const char *argv[] = {"tnagent", "--quiet", "--upgrade-failed", nullptr};
    parse_options(3, const_cast<char **>(argv), &line);
    EXPECT_EQ(quiet_flag, 1U);
}
