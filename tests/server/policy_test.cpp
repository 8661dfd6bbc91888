#include "server/policy.h"

#include "fakes/test_host.h"
#include "platform/regex.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// A policy of this text alone.
policy read(const std::string &text) {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(read_policy(text, &rules));
    return rules;
}

std::string failure_of(const std::string &text) {
    policy rules;
    regex_host = &regex_ops_host;
    const char *failure = read_policy(text, &rules);
    return failure != nullptr ? failure : "(none)";
}

class policy_file : public testing::Test {
protected:
    policy_file() {
        regex_host = &regex_ops_host;
        std::ofstream(path) << "checkin = \"5 min\"\n";
    }
    ~policy_file() override { std::filesystem::remove(path); }
    const std::string path =
        std::filesystem::temp_directory_path() / ("tnserver_policy_" + std::to_string(getpid()));
};

} // namespace

TEST(built_in_policy, is_what_the_documentation_tells) {
    policy rules;
    regex_host = &regex_ops_host;
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

TEST(built_in_policy, knows_every_family) {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(load_policy("", &rules));
    EXPECT_EQ(rule_for(rules, "fs./var").frequency, 60);
    EXPECT_EQ(rule_for(rules, "mem.phys").frequency, 30);
    EXPECT_EQ(rule_for(rules, "system.idle").frequency, 10);
    for (const char *check :
         {"proc.systemd", "ifthrough.eth0.Bytes Sent/sec", "ifevents.eth0.Packets Received Errors",
          "block.physical.8.idle", "smart.PhysicalDrive0", "safte.scsi0:00:06:00.slot.0",
          "ipmisens.E07.I01.S01.00:30", "csmiplus.cntrl:0.logical.lv:0.cciss:status", "custom.backup",
          "perf.System.Processes"})
        EXPECT_TRUE(rule_for(rules, check).frequency) << check;
    EXPECT_FALSE(rule_for(rules, "proc.bash").frequency);
    EXPECT_FALSE(rule_for(rules, "perf.Process.init.% Processor Time").frequency);
}

TEST(built_in_policy, leaves_services_alone_that_did_not_run) {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(load_policy("", &rules));
    EXPECT_EQ(rule_for(rules, "scm.ssh.service", "The service is running").frequency, 60);
    EXPECT_FALSE(rule_for(rules, "scm.ssh.service", "The service is stopped").frequency);
}

TEST(built_in_policy, leaves_services_alone_that_come_and_go) {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(load_policy("", &rules));
    for (const char *check : {"scm.user@1000.service", "scm.user-runtime-dir@0.service", "scm.run-u7.service",
                              "scm.systemd-hostnamed.service", "scm.packagekit.service", "scm.BITS"})
        EXPECT_EQ(rule_for(rules, check, "The service is running").enabled, false) << check;
    for (const char *check : {"scm.getty@tty1.service", "scm.systemd-logind.service", "scm.users.service"})
        EXPECT_FALSE(rule_for(rules, check, "The service is running").enabled) << check;
}

TEST(built_in_policy, leaves_interfaces_of_containers_alone) {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(load_policy("", &rules));
    for (const char *check : {"ifthrough.veth1a2b3c.Bytes Sent/sec", "ifevents.cali7.Packets Received Errors",
                              "ifthrough.tap0.Bytes Received/sec", "ifevents.vnet3.Packets Received Errors"})
        EXPECT_EQ(rule_for(rules, check, "").enabled, false) << check;
    EXPECT_FALSE(rule_for(rules, "ifthrough.eth0.Bytes Sent/sec", "").enabled);
    EXPECT_FALSE(rule_for(rules, "ifevents.tailscale0.Packets Received Errors", "").enabled);
}

TEST(built_in_policy, takes_states_of_hardware_by_their_meaning) {
    using values = std::vector<uint32_t>;
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(load_policy("", &rules));
    EXPECT_EQ(rule_for(rules, "smart.PhysicalDrive0").alert_values, values({2}));
    EXPECT_EQ(rule_for(rules, "safte.scsi0:00:06:00.slot.0").alert_values, values({3}));
    EXPECT_EQ(rule_for(rules, "safte.scsi0:00:06:00.fan.0").alert_values, values({1}));
    EXPECT_EQ(rule_for(rules, "safte.scsi0:00:06:00.psu.1").alert_values, values({2, 3}));
    EXPECT_EQ(rule_for(rules, "ipmisens.chassisstatus.drivefault").alert_values, values({1}));
    EXPECT_EQ(rule_for(rules, "ipmisens.E04.I01.S0D.00:10:6F").alert_values, values({3}));
    EXPECT_FALSE(rule_for(rules, "ipmisens.E07.I01.S01.00:30").alert_values);
    EXPECT_EQ(rule_for(rules, "csmiplus.cntrl:0.logical.lv:0.cciss:status").alert_values,
              values({1, 6, 7, 9, 11}));
}

TEST(rule_for, asks_for_the_comment_where_a_rule_has_one) {
    policy rules = read("[[check]]\nname = \"scm\"\ncomment = \"*running\"\nfrequency = 9");
    EXPECT_EQ(rule_for(rules, "scm.a", "is running").frequency, 9);
    EXPECT_FALSE(rule_for(rules, "scm.a", "is running no more").frequency);
    EXPECT_FALSE(rule_for(rules, "scm.a").frequency);
    EXPECT_NE(failure_of("[[check]]\nname = \"a\"\ncomment = 5").find("comment"), std::string::npos);
}

TEST(read_policy, takes_settings_with_units) {
    policy rules = read(R"(
checkin = "2 min"
rescan = "12 h"
keep_results = 0
max_agents = 7
max_downtime = "1 d")");
    EXPECT_EQ(rules.checkin_frequency, 120);
    EXPECT_EQ(rules.rescan_s, 43200);
    EXPECT_EQ(rules.keep_results_s, 0);
    EXPECT_EQ(rules.max_agents, 7);
    EXPECT_EQ(rules.max_downtime_min, 1440);
}

TEST(read_policy, takes_bare_numbers_for_seconds) {
    EXPECT_EQ(read("checkin = 45").checkin_frequency, 45);
    EXPECT_EQ(read("checkin = 45.0").checkin_frequency, 45);
}

TEST(read_policy, takes_words_for_true_and_false) {
    EXPECT_TRUE(read("rekey = true").rekey);
    policy rules = read("accept_new = false\nrekey = false");
    EXPECT_FALSE(rules.rekey);
    EXPECT_FALSE(rules.accept_new);
}

TEST(read_policy, leaves_what_is_not_said_as_it_was) {
    policy rules = read("checkin = 20");
    EXPECT_SUCCESS(read_policy("rescan = 100", &rules));
    EXPECT_EQ(rules.checkin_frequency, 20);
    EXPECT_EQ(rules.rescan_s, 100);
}

TEST(read_policy, takes_servers_with_and_without_port) {
    policy rules = read(R"(servers = ["one", "two.example:99"])");
    ASSERT_EQ(rules.servers.size(), 2U);
    EXPECT_EQ(rules.servers[0].name, "one");
    EXPECT_EQ(rules.servers[0].port, 3241);
    EXPECT_EQ(rules.servers[1].name, "two.example");
    EXPECT_EQ(rules.servers[1].port, 99);
}

TEST(read_policy, holds_the_checkin_within_a_day) {
    EXPECT_EQ(failure_of("checkin = 10"), "(none)");
    EXPECT_EQ(failure_of("checkin = 9"), "line 1: checkin is to be 10 s to 1 d");
    EXPECT_EQ(failure_of("checkin = \"1 d\""), "(none)");
    EXPECT_EQ(failure_of("checkin = 86401"), "line 1: checkin is to be 10 s to 1 d");
}

TEST(read_policy, names_the_line_that_is_wrong) {
    EXPECT_EQ(failure_of("checkin = 30\n\nchekin = 30"), "line 3: nothing is called \"chekin\" here");
    EXPECT_EQ(failure_of("rekey = \"yes\""), "line 1: rekey is to be true or false");
    EXPECT_EQ(failure_of("\naccept_new = 1"), "line 2: accept_new is to be true or false");
    EXPECT_EQ(failure_of("max_agents = \"5 min\""), "line 1: max_agents is to be a number from 1 on");
    EXPECT_EQ(failure_of("max_agents = 0"), "line 1: max_agents is to be a number from 1 on");
    EXPECT_EQ(failure_of("rescan = \"soon\""), "line 1: rescan is to be 1 min or more");
    EXPECT_EQ(failure_of("max_downtime = 59"), "line 1: max_downtime is to be 1 min or more");
    EXPECT_EQ(failure_of("keep_results = [1]"), "line 1: keep_results is to be a time like 90 or \"5 min\"");
    for (const char *servers : {"\"one\"", "[1]", "[\"a:0\"]", "[\"a:65536\"]", "[\":9\"]", "[\"a:b\"]"})
        EXPECT_EQ(failure_of("servers = " + std::string(servers)),
                  "line 1: servers is to be a list like [\"host:port\", \"host\"]");
}

TEST(read_policy, refuses_what_is_no_toml_with_its_line) {
    EXPECT_EQ(failure_of("checkin = 30\nwords\n").substr(0, 8), "line 2: ");
    EXPECT_EQ(failure_of("checkin = 30 s\n").substr(0, 8), "line 1: ");
    EXPECT_EQ(failure_of("checkin = 30\ncheckin = 40\n").substr(0, 8), "line 2: ");
    EXPECT_EQ(failure_of("[[check]\n").substr(0, 8), "line 1: ");
    EXPECT_NE(failure_of("rekey = \"\xFF\"\n"), "(none)");
}

TEST(read_policy, takes_no_zero_byte_in_a_text) {
    EXPECT_EQ(failure_of("[[check]]\nname = \"a\\u0000b\""),
              "line 2: name is to be the name of a check, which may hold *");
}

TEST(read_policy, knows_settings_and_checks_apart) {
    EXPECT_EQ(failure_of("frequency = 30"), "line 1: nothing is called \"frequency\" here");
    EXPECT_EQ(failure_of("[[check]]\nname = \"fs\"\nrekey = true"),
              "line 3: nothing is called \"rekey\" here");
    EXPECT_EQ(failure_of("[fs]\nfrequency = 30"), "line 1: nothing is called \"fs\" here");
}

TEST(read_policy, needs_a_name_for_each_check) {
    EXPECT_EQ(failure_of("\n[[check]]\nfrequency = 30"), "line 2: \"name\" is missing");
    EXPECT_EQ(failure_of("[[check]]\nname = \"\""),
              "line 2: name is to be the name of a check, which may hold *");
}

TEST(read_policy, needs_lists_of_tables) {
    EXPECT_EQ(failure_of("\n[check]\nname = \"fs\""), "line 2: check is to be a list of tables");
    EXPECT_EQ(failure_of("check = 5"), "line 1: check is to be a list of tables");
    EXPECT_EQ(failure_of("check = [5]"), "line 1: check is to be a list of tables");
}

TEST(read_policy, takes_a_family_for_all_its_checks) {
    policy rules =
        read("[[check]]\nname = \"fs\"\n[[check]]\nname = \"system.idle\"\n[[check]]\nname = \"*\"");
    ASSERT_EQ(rules.rules.size(), 3U);
    EXPECT_EQ(rules.rules[0].pattern, "fs.*");
    EXPECT_EQ(rules.rules[1].pattern, "system.idle");
    EXPECT_EQ(rules.rules[2].pattern, "*");
}

TEST(read_policy, takes_limits_of_every_form) {
    policy rules = read(R"([[check]]
name = "x"
warn_low = "10 % at most 20 GB"
alert_low = 600
warn_high = "2 h"
alert_high = "none")");
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
         {"-5", "\"101 %\"", "\"ten\"", "\"5 apples\"", "\"10 at most 5\"", "\"10 % at most\"", "\"10 % 5\"",
          "\"\"", "nan", "true", "[5]", "\"none at most 5\""})
        EXPECT_EQ(failure_of("[[check]]\nname = \"x\"\nwarn_low = " + std::string(value)),
                  "line 3: warn_low is to be a number, a share like \"10 % at most 20 GB\", or \"none\"")
            << value;
}

TEST(read_policy, takes_values_of_an_enumeration) {
    std::string check = "[[check]]\nname = \"scm\"\n";
    policy rules = read(check + "alert_values = [0, 31]\nwarn_values = []");
    EXPECT_EQ(*rules.rules[0].alert_values, (std::vector<uint32_t>{0, 31}));
    EXPECT_TRUE(rules.rules[0].warn_values->empty());
    for (const char *value : {"[32]", "[1.5]", "[-1]", "5", "[\"1\"]"})
        EXPECT_EQ(failure_of(check + "alert_values = " + value),
                  "line 3: alert_values is to be a list of numbers from 0 to 31")
            << value;
}

TEST(rule_for, lets_later_rules_override_what_they_name) {
    policy rules = read(R"([[check]]
name = "fs"
frequency = 60
warn_low = "10 %"
[[check]]
name = "fs./var"
warn_low = "5 %")");
    check_rule rule = rule_for(rules, "fs./var");
    EXPECT_EQ(rule.frequency, 60);
    EXPECT_DOUBLE_EQ(rule.warn_low->number, 0.05);
    EXPECT_DOUBLE_EQ(rule_for(rules, "fs./").warn_low->number, 0.1);
}

TEST(policy_fingerprint, changes_with_what_means_something) {
    std::string check = "[[check]]\nname = \"fs\"\nfrequency = ";
    std::string base = read("checkin = 30\n" + check + "60").fingerprint;
    EXPECT_EQ(read("# hello\n checkin=30 \n\n" + check + "60  # s").fingerprint, base);
    EXPECT_NE(read("checkin = 30\n" + check + "61").fingerprint, base);
    EXPECT_NE(read(check + "60").fingerprint, base);
    policy rules = read("checkin = 30\n" + check + "60");
    EXPECT_SUCCESS(read_policy("rekey = true", &rules));
    EXPECT_NE(rules.fingerprint, read("rekey = true").fingerprint);
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
    std::ofstream(path) << "checkin = 30\ncolour = \"red\"\n";
    policy rules;
    EXPECT_FAILURE(load_policy(path, &rules), path + ", line 2: nothing is called \"colour\" here");
}

TEST_F(policy_file, must_be_readable) {
    policy rules;
    EXPECT_FAILURE(load_policy(path + ".not", &rules), "cannot read the policy " + path + ".not");
    EXPECT_FAILURE(load_policy("/", &rules), "cannot read the policy /");
}
