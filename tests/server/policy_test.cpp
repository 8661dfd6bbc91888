#include "server/policy.h"

#include "fakes/test_host.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// A policy of this text alone.
policy read(const std::string &text) {
    policy rules;
    EXPECT_SUCCESS(read_policy(text, &rules));
    return rules;
}

std::string failure_of(const std::string &text) {
    policy rules;
    const char *failure = read_policy(text, &rules);
    return failure != nullptr ? failure : "(none)";
}

class policy_file : public testing::Test {
protected:
    policy_file() { std::ofstream(path) << "checkin = 5 min\n"; }
    ~policy_file() override { std::filesystem::remove(path); }
    const std::string path =
        std::filesystem::temp_directory_path() / ("tnserver_policy_" + std::to_string(getpid()));
};

} // namespace

TEST(built_in_policy, is_what_the_documentation_tells) {
    policy rules;
    EXPECT_SUCCESS(load_policy("", &rules));
    EXPECT_EQ(rules.checkin_frequency, 30);
    EXPECT_EQ(rules.rescan_s, 86400);
    EXPECT_EQ(rules.keep_results_s, 30 * 86400);
    EXPECT_TRUE(rules.accept_new);
    EXPECT_FALSE(rules.rekey);
    EXPECT_EQ(rules.max_agents, 10000);
    EXPECT_EQ(rules.max_downtime_min, 43200);
    EXPECT_TRUE(rules.servers.empty());
}

TEST(built_in_policy, knows_three_families) {
    policy rules;
    EXPECT_SUCCESS(load_policy("", &rules));
    EXPECT_EQ(rule_for(rules, "fs./var").frequency, 60);
    EXPECT_EQ(rule_for(rules, "mem.phys").frequency, 30);
    EXPECT_EQ(rule_for(rules, "system.idle").frequency, 10);
    EXPECT_FALSE(rule_for(rules, "proc.sshd").frequency);
}

TEST(read_policy, takes_settings_with_units) {
    policy rules = read("checkin = 2 min\nrescan=12 h\nkeep_results = 0\nmax_agents = 7\nmax_downtime = 1 d");
    EXPECT_EQ(rules.checkin_frequency, 120);
    EXPECT_EQ(rules.rescan_s, 43200);
    EXPECT_EQ(rules.keep_results_s, 0);
    EXPECT_EQ(rules.max_agents, 7);
    EXPECT_EQ(rules.max_downtime_min, 1440);
}

TEST(read_policy, cuts_blanks_and_comments) {
    policy rules = read("# all\n\n \t checkin\t=  45 s   # often\r\nrekey = yes\n");
    EXPECT_EQ(rules.checkin_frequency, 45);
    EXPECT_TRUE(rules.rekey);
}

TEST(read_policy, keeps_a_hash_within_a_word) {
    EXPECT_EQ(read("[custom.a#b]\nfrequency = 20").rules[0].pattern, "custom.a#b");
}

TEST(read_policy, lets_the_later_line_count) {
    EXPECT_EQ(read("checkin = 20\ncheckin = 40").checkin_frequency, 40);
}

TEST(read_policy, takes_servers_with_and_without_port) {
    policy rules = read("servers = one, two.example:99");
    ASSERT_EQ(rules.servers.size(), 2U);
    EXPECT_EQ(rules.servers[0].name, "one");
    EXPECT_EQ(rules.servers[0].port, 3241);
    EXPECT_EQ(rules.servers[1].name, "two.example");
    EXPECT_EQ(rules.servers[1].port, 99);
}

TEST(read_policy, holds_the_checkin_within_a_day) {
    EXPECT_EQ(failure_of("checkin = 10"), "(none)");
    EXPECT_EQ(failure_of("checkin = 9"), "line 1: \"9\" is not 10 s to 1 d");
    EXPECT_EQ(failure_of("checkin = 1 d"), "(none)");
    EXPECT_EQ(failure_of("checkin = 86401"), "line 1: \"86401\" is not 10 s to 1 d");
}

TEST(read_policy, names_the_line_that_is_wrong) {
    EXPECT_EQ(failure_of("checkin = 30\n\nchekin = 30"), "line 3: nothing is called \"chekin\" here");
    EXPECT_EQ(failure_of("words"), "line 1: neither \"key = value\" nor [NAME]");
    EXPECT_EQ(failure_of("[fs"), "line 1: a section is [NAME], and a name may hold *");
    EXPECT_EQ(failure_of("[]"), "line 1: a section is [NAME], and a name may hold *");
    EXPECT_EQ(failure_of("rekey = maybe"), "line 1: \"maybe\" is not yes or no");
    EXPECT_EQ(failure_of("servers = a:0"), "line 1: \"a:0\" is not host:port, host:port");
    EXPECT_EQ(failure_of("servers = a:65536"), "line 1: \"a:65536\" is not host:port, host:port");
    EXPECT_EQ(failure_of("max_agents = 5 min"), "line 1: \"5 min\" is not a number from 1 on");
    EXPECT_EQ(failure_of("rescan = soon"), "line 1: \"soon\" is not 1 min or more");
}

TEST(read_policy, knows_settings_and_rules_apart) {
    EXPECT_EQ(failure_of("frequency = 30"), "line 1: nothing is called \"frequency\" here");
    EXPECT_EQ(failure_of("[fs]\nrekey = yes"), "line 2: nothing is called \"rekey\" here");
}

TEST(read_policy, takes_a_family_for_all_its_checks) {
    policy rules = read("[fs]\nfrequency = 20\n[system.idle]\nfrequency = 30");
    EXPECT_EQ(rules.rules[0].pattern, "fs.*");
    EXPECT_EQ(rules.rules[1].pattern, "system.idle");
}

TEST(read_policy, takes_limits_of_every_form) {
    policy rules =
        read("[x]\nwarn_low = 10 % at most 20 GB\nalert_low = 600\nwarn_high=2 h\nalert_high = none");
    const check_rule &rule = rules.rules[0];
    EXPECT_TRUE(rule.warn_low->share);
    EXPECT_DOUBLE_EQ(rule.warn_low->number, 0.1);
    EXPECT_DOUBLE_EQ(*rule.warn_low->at_most, 20 * 1073741824.0);
    EXPECT_TRUE(rule.warn_low->bytes);
    EXPECT_DOUBLE_EQ(rule.alert_low->number, 600);
    EXPECT_FALSE(rule.alert_low->share);
    EXPECT_DOUBLE_EQ(rule.warn_high->number, 7200);
    EXPECT_TRUE(rule.alert_high->off);
}

TEST(read_policy, refuses_limits_without_sense) {
    for (const char *value :
         {"-5", "101 %", "ten", "5 apples", "10 at most 5", "10 % at most", "10 % 5", "", "nan"})
        EXPECT_NE(failure_of("[x]\nwarn_low = " + std::string(value)), "(none)") << value;
}

TEST(read_policy, takes_values_of_an_enumeration) {
    policy rules = read("[scm]\nalert_values = 0, 31\nwarn_values = none");
    EXPECT_EQ(*rules.rules[0].alert_values, (std::vector<uint32_t>{0, 31}));
    EXPECT_TRUE(rules.rules[0].warn_values->empty());
    EXPECT_EQ(failure_of("[scm]\nalert_values = 32"), "line 2: \"32\" is not numbers from 0 to 31");
    EXPECT_EQ(failure_of("[scm]\nalert_values = 1.5"), "line 2: \"1.5\" is not numbers from 0 to 31");
}

TEST(rule_for, lets_later_rules_override_what_they_name) {
    policy rules = read("[fs]\nfrequency = 60\nwarn_low = 10 %\n[fs./var]\nwarn_low = 5 %");
    check_rule rule = rule_for(rules, "fs./var");
    EXPECT_EQ(rule.frequency, 60);
    EXPECT_DOUBLE_EQ(rule.warn_low->number, 0.05);
    EXPECT_DOUBLE_EQ(rule_for(rules, "fs./").warn_low->number, 0.1);
}

TEST(policy_fingerprint, changes_with_what_means_something) {
    std::string base = read("checkin = 30\n[fs]\nfrequency = 60").fingerprint;
    EXPECT_EQ(read("# hello\n checkin = 30 \n\n[fs]\nfrequency = 60  # s").fingerprint, base);
    EXPECT_NE(read("checkin = 30\n[fs]\nfrequency = 61").fingerprint, base);
    EXPECT_NE(read("[fs]\nfrequency = 60").fingerprint, base);
    EXPECT_NE(base, "");
}

TEST_F(policy_file, is_read_over_the_built_in_policy) {
    policy rules;
    EXPECT_SUCCESS(load_policy(path, &rules));
    EXPECT_EQ(rules.checkin_frequency, 300);
    EXPECT_TRUE(rule_for(rules, "fs./").frequency);
}

TEST_F(policy_file, may_be_empty) {
    std::ofstream(path, std::ios::trunc);
    policy rules;
    EXPECT_SUCCESS(load_policy(path, &rules));
}

TEST_F(policy_file, is_named_with_the_line_that_is_wrong) {
    std::ofstream(path) << "checkin = 30\ncolour = red\n";
    policy rules;
    EXPECT_FAILURE(load_policy(path, &rules), path + ", line 2: nothing is called \"colour\" here");
}

TEST_F(policy_file, must_be_readable) {
    policy rules;
    EXPECT_FAILURE(load_policy(path + ".not", &rules), "cannot read the policy " + path + ".not");
    EXPECT_FAILURE(load_policy("/", &rules), "cannot read the policy /");
}
