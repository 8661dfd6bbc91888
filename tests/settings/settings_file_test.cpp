#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/value_list.h"

#include <gtest/gtest.h>

class settings_files : public testing::Test {
protected:
    test_host host;
    value_list list = {};

    void TearDown() override {
        host.fail_allocation = 0;
        free_values(&list);
        EXPECT_EQ(host.blocks, 0);
    }

    // The pairs as "key=value|key=value".
    std::string parse(const std::string &text, bool report = true) {
        free_values(&list);
        EXPECT_TRUE(parse_settings(text.data(), text.size(), "/etc/x.conf", report, &list));
        std::string pairs;
        for (uint32_t i = 0; i < list.count; i++)
            pairs += std::string(i != 0 ? "|" : "") + list.values[i].key + "=" + list.values[i].value;
        return pairs;
    }
};

TEST_F(settings_files, hold_a_key_and_a_value_a_line) {
    EXPECT_EQ(parse("name = agent\ndomain=example\n"), "name=agent|domain=example");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(settings_files, lose_the_blanks_around_both) {
    EXPECT_EQ(parse(" \tname\t = \t my agent \t\n"), "name=my agent");
}

TEST_F(settings_files, have_comments_and_empty_lines) {
    EXPECT_EQ(parse("# first\n\n   \n  # second = 2\nname = a # no comment\n"), "name=a # no comment");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(settings_files, may_end_their_lines_in_two_characters) {
    EXPECT_EQ(parse("name = a\r\n\r\n# c\r\ndomain = b\r\n"), "name=a|domain=b");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(settings_files, may_end_without_a_line_end) {
    EXPECT_EQ(parse("name = a\ndomain = b"), "name=a|domain=b");
}

TEST_F(settings_files, may_be_empty) {
    EXPECT_EQ(parse(""), "");
}

TEST_F(settings_files, take_a_further_equals_sign_into_the_value) {
    EXPECT_EQ(parse("name = a = b\n"), "name=a = b");
}

TEST_F(settings_files, may_set_an_empty_value) {
    EXPECT_EQ(parse("name =\n"), "name=");
}

TEST_F(settings_files, end_a_line_at_a_zero_byte_and_go_on_behind_it) {
    EXPECT_EQ(parse(std::string("name = a\0b\ndomain = c\nnope\n", 27)), "name=a|domain=c");
    EXPECT_TRUE(host.logged(LOG_WARNING, "/etc/x.conf, line 3: no \"=\" in \"nope\""));
}

TEST_F(settings_files, complain_about_a_line_without_an_equals_sign) {
    EXPECT_EQ(parse("name = a\n\n  verbose  \ndomain = b\n"), "name=a|domain=b");
    EXPECT_TRUE(host.logged(LOG_WARNING, "/etc/x.conf, line 3: no \"=\" in \"verbose\""));
    EXPECT_EQ(host.log.size(), 1U);
}

TEST_F(settings_files, complain_about_an_unknown_key) {
    parse("name = a\nNAME = b\n= c\n");
    EXPECT_TRUE(host.logged(LOG_WARNING, "/etc/x.conf, line 2: unknown setting \"NAME\""));
    EXPECT_TRUE(host.logged(LOG_WARNING, "/etc/x.conf, line 3: unknown setting \"\""));
    EXPECT_EQ(host.log.size(), 2U);
}

TEST_F(settings_files, complain_about_a_key_given_again_and_take_the_last) {
    EXPECT_EQ(parse("name = a\nname = b\n"), "name=b");
    EXPECT_TRUE(host.logged(LOG_WARNING, "/etc/x.conf, line 2: setting \"name\" is given again"));
}

TEST_F(settings_files, are_silent_where_that_was_told) {
    EXPECT_EQ(parse("nope\nWHAT = 1\nname = a\nname = b\n", false), "WHAT=1|name=b");
    EXPECT_TRUE(host.log.empty());
}

TEST_F(settings_files, know_every_setting) {
    parse("max_data_retention_days=1\nname=1\nserver_list=1\nserver_port=1\ndomain=1\nlogfile=1\n"
          "variable_file=1\ncustom_chk_conf=1\nactions_conf=1\nlog_chk_conf=1\nlog_days=1\nmax_log_files=1\n"
          "loglevel=1\nallow_autoupgrade=1\nuse_psapi=1\ndisable_smart=1\nsafte_assume_active=1\n"
          "perf_cnt_level=1\nskip_event_source=1\ndisable_checks=1\n");
    EXPECT_TRUE(host.log.empty());
    EXPECT_EQ(list.count, 20U);
}

TEST_F(settings_files, fail_when_memory_is_out) {
    std::string text = "name = a\ndomain = b\n";
    uint32_t n = 1;
    for (;; n++) {
        host.fail_allocation = n;
        bool parsed = parse_settings(text.data(), text.size(), "/etc/x.conf", true, &list);
        free_values(&list);
        if (host.fail_allocation != 0) break;
        EXPECT_FALSE(parsed) << n;
    }
    EXPECT_EQ(n, 9U); // two lines, two keys, two values and the tables
}
