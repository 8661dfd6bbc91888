#include "server/check_plan.h"

#include "fakes/test_host.h"
#include "platform/regex.h"

#include <cmath>
#include <gtest/gtest.h>
#include <sstream>

namespace {

device make_device(const std::string &id, uint32_t type, const std::string &unit = "",
                   std::optional<double> maximum = {}) {
    return {.id = id, .type = type, .unit = unit, .hint_max = maximum, .description = 3};
}

policy built_in(const std::string &more = "") {
    policy rules;
    regex_host = &regex_ops_host;
    EXPECT_SUCCESS(read_policy(BUILT_IN_POLICY, &rules));
    EXPECT_SUCCESS(read_policy(more, &rules));
    return rules;
}

// The check of one device under a policy, which must want it.
planned_check plan_one(const std::string &family, const device &what, const std::string &more = "") {
    auto checks = plan_checks(built_in(more), {{{family, what.id}, what}});
    EXPECT_EQ(checks.size(), 1U);
    return checks.empty() ? planned_check() : checks[0];
}

// The check of a log with this path of Linux.
planned_check plan_log(const std::string &path, const std::string &more) {
    offered_device log = {.path = {"log", "/"}};
    std::istringstream names(path.substr(1));
    for (std::string name; std::getline(names, name, '/');)
        log.path.push_back(name);
    log.what = make_device(log.path.back(), 9);
    auto checks = plan_checks(built_in(more), {log});
    EXPECT_EQ(checks.size(), 1U);
    return checks.empty() ? planned_check() : checks[0];
}

constexpr double GB = 1048576; // in kB

} // namespace

TEST(flatten_tree, gives_devices_with_their_paths) {
    device_group inner = {.id = "b", .devices = {make_device("y", 0)}};
    device_group outer = {.id = "a", .devices = {make_device("x", 0)}, .groups = {inner}};
    device_group other = {.id = "c", .devices = {make_device("z", 0)}};
    auto devices = flatten_tree({outer, other});
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_EQ(devices[0].path, (std::vector<std::string>{"a", "x"}));
    EXPECT_EQ(devices[1].path, (std::vector<std::string>{"a", "b", "y"}));
    EXPECT_EQ(devices[2].path, (std::vector<std::string>{"c", "z"}));
}

TEST(plan_checks, takes_a_share_of_a_small_volume) {
    planned_check check = plan_one("fs", make_device("/boot", 7, "kB", 1000));
    EXPECT_EQ(check.conf.kind, check_kind::real_continuous);
    EXPECT_EQ(check.conf.frequency, 60);
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 100);
    EXPECT_DOUBLE_EQ(*check.conf.limits.alert_low, 50);
    EXPECT_FALSE(check.conf.limits.warn_high);
    EXPECT_FALSE(check.conf.limits.alert_high);
    EXPECT_EQ(check.unit, "kB");
    EXPECT_EQ(check.description, 3);
}

TEST(plan_checks, caps_the_share_of_a_large_volume) {
    planned_check check = plan_one("fs", make_device("/data", 7, "kB", 10000 * GB));
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 20 * GB);
    EXPECT_DOUBLE_EQ(*check.conf.limits.alert_low, 10 * GB);
}

TEST(plan_checks, takes_hundredths_of_idle_time) {
    planned_check check = plan_one("system", make_device("idle", 0, "%", 10000));
    EXPECT_EQ(check.conf.kind, check_kind::continuous);
    EXPECT_EQ(check.conf.frequency, 10);
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 1000);
    EXPECT_DOUBLE_EQ(*check.conf.limits.alert_low, 200);
}

TEST(plan_checks, sets_no_limit_on_context_switches) {
    planned_check check = plan_one("system", make_device("cswitch", 0, "/s"));
    const check_limits &limits = check.conf.limits;
    EXPECT_FALSE(limits.warn_low || limits.warn_high || limits.alert_low || limits.alert_high);
}

TEST(plan_checks, warns_of_a_short_uptime) {
    planned_check check = plan_one("system", make_device("uptime", 4, "s"));
    EXPECT_EQ(check.conf.kind, check_kind::continuous);
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 600);
    EXPECT_FALSE(check.conf.limits.alert_low);
}

TEST(plan_checks, needs_a_whole_for_a_share) {
    for (std::optional<double> maximum : {std::optional<double>(), std::optional(0.0), std::optional(-1.0),
                                          std::optional<double>(INFINITY), std::optional<double>(NAN)})
        EXPECT_FALSE(plan_one("mem", make_device("swap", 7, "kB", maximum)).conf.limits.warn_low);
}

TEST(plan_checks, counts_bytes_in_the_unit_of_the_device) {
    const char *rule = R"([[check]]
name = "x"
warn_low = "1 MB"
alert_low = 7)";
    planned_check check = plan_one("x", make_device("a", 7, "kB"), rule);
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 1024);
    EXPECT_DOUBLE_EQ(*check.conf.limits.alert_low, 7);
    EXPECT_DOUBLE_EQ(*plan_one("x", make_device("a", 7, "B"), rule).conf.limits.warn_low, 1048576);
}

TEST(plan_checks, lets_none_take_a_limit_away) {
    planned_check check = plan_one("mem", make_device("phys", 7, "kB", 1000), R"([[check]]
name = "mem.phys"
warn_low = "none")");
    EXPECT_FALSE(check.conf.limits.warn_low);
    EXPECT_TRUE(check.conf.limits.alert_low);
}

TEST(plan_checks, makes_bitmap_kinds_enumerations) {
    for (uint32_t type : {1, 2, 3, 5, 10, 11, 12, 13}) {
        planned_check check = plan_one("x", make_device("a", type), R"([[check]]
name = "x"
alert_values = [2]
warn_values = [0])");
        EXPECT_EQ(check.conf.kind, check_kind::enumeration) << type;
        EXPECT_EQ(check.conf.limits.severities, (std::vector<uint32_t>{1, 0, 2}));
    }
}

TEST(plan_checks, leaves_out_logs_actions_and_unknown_types) {
    for (uint32_t type : {6, 8, 9, 14, 99})
        EXPECT_TRUE(plan_checks(built_in(R"([[check]]
name = "x"
frequency = 20)"),
                                {{{"x", "a"}, make_device("a", type)}})
                        .empty());
}

TEST(plan_checks, leaves_out_families_that_no_rule_names) {
    EXPECT_TRUE(plan_checks(built_in(), {{{"proc", "init"}, make_device("init", 1)}}).empty());
}

TEST(plan_checks, takes_a_minute_where_no_frequency_is_given) {
    EXPECT_EQ(plan_one("proc", make_device("sshd", 1), R"([[check]]
name = "proc.sshd"
alert_values = [0])")
                  .conf.frequency,
              60);
    EXPECT_EQ(plan_one("proc", make_device("sshd", 1), R"([[check]]
name = "proc.sshd"
enabled = true)")
                  .conf.frequency,
              60);
}

TEST(plan_checks, leaves_out_what_is_not_enabled) {
    policy rules = built_in(R"([[check]]
name = "fs./mnt*"
enabled = false)");
    auto checks = plan_checks(
        rules, {{{"fs", "/mnt/cd"}, make_device("/mnt/cd", 7)}, {{"fs", "/"}, make_device("/", 7)}});
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].conf.id, "/");
}

TEST(plan_checks, checks_a_path_once) {
    std::vector<offered_device> twice = {{{"proc", "sh"}, make_device("sh", 1)},
                                         {{"proc", "sh"}, make_device("sh", 1)}};
    EXPECT_EQ(plan_checks(built_in(R"([[check]]
name = "proc"
enabled = true)"),
                          twice)
                  .size(),
              1U);
}

// Logs

TEST(plan_checks, configures_a_log_by_default) {
    planned_check check = plan_log("/var/log/syslog", "");
    EXPECT_EQ(check.conf.kind, check_kind::log);
    EXPECT_EQ(check.conf.frequency, 30);
    EXPECT_EQ(check.conf.id, "syslog");
    EXPECT_EQ(check.conf.conf_id, "");
    EXPECT_EQ(check.conf.log.separator, "\r?\n");
    EXPECT_EQ(check.conf.log.inclusion, uint32_t{SEPARATOR_DROPPED});
    EXPECT_FALSE(check.conf.log.warn_silence || check.conf.log.alert_silence);
    ASSERT_EQ(check.conf.log.rules.size(), 2U);
    EXPECT_EQ(check.conf.log.rules[0].status, STATUS_ALERT);
    EXPECT_EQ(check.conf.log.rules[1].status, STATUS_WARNING);
}

TEST(plan_checks, configures_a_log_by_its_path) {
    planned_check check = plan_log("/var/log/syslog", R"([[log]]
path = "/var/log/sys*"
frequency = 5
separator = "\n\n"
inclusion = "opens"
warn_silence = 60
alert_silence = "off"
rules = [{clause = "'a'", status = "warn"}])");
    EXPECT_EQ(check.conf.frequency, 5);
    EXPECT_EQ(check.conf.log.separator, "\n\n");
    EXPECT_EQ(check.conf.log.inclusion, uint32_t{SEPARATOR_OPENS});
    EXPECT_EQ(check.conf.log.warn_silence, 60);
    EXPECT_FALSE(check.conf.log.alert_silence);
    ASSERT_EQ(check.conf.log.rules.size(), 1U);
    EXPECT_EQ(check.conf.log.rules[0].clause, "'a'");
}

TEST(plan_checks, knows_logs_of_every_kind_by_their_paths) {
    policy rules = built_in(R"([[log]]
path = "C:\\logs\\*"
enabled = false
[[log]]
path = "eventlog/*"
frequency = 5)");
    auto checks = plan_checks(rules, {{{"log", "C:", "logs", "app.log"}, make_device("app.log", 9)},
                                      {{"log", "eventlog", "System"}, make_device("System", 9)}});
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].conf.id, "System");
    EXPECT_EQ(checks[0].conf.frequency, 5);
}

TEST(plan_checks, leaves_logs_to_their_own_policy) {
    EXPECT_EQ(plan_log("/a", "[[check]]\nname = \"*\"\nenabled = false").conf.id, "a");
}

TEST(plan_checks, sends_all_forward_groups_where_a_rule_names_one) {
    std::string groups = R"(
[[forward]]
name = "ops"
frequency = 7
warn_silence = 90
rules = [{clause = "'a'", decision = "call", destination = "last"}]
[[forward]]
name = "last"
)";
    std::string rule = R"([[log]]
path = "/a"
rules = [{clause = "'x'", decision = "copyto", destination = "ops"}])";
    std::vector<offered_device> logs = {{{"log", "/", "a"}, make_device("a", 9)},
                                        {{"log", "/", "b"}, make_device("b", 9)}};
    EXPECT_EQ(plan_checks(built_in(groups), logs).size(), 2U);
    auto checks = plan_checks(built_in(groups + rule), logs);
    ASSERT_EQ(checks.size(), 4U);
    const planned_check &ops = checks[2];
    EXPECT_EQ(ops.path, (std::vector<std::string>{"log", "/forward", "ops"}));
    EXPECT_EQ(ops.conf.id, "ops");
    EXPECT_EQ(ops.conf.conf_id, "ops");
    EXPECT_EQ(ops.conf.kind, check_kind::log);
    EXPECT_EQ(ops.conf.frequency, 7);
    EXPECT_EQ(ops.conf.log.warn_silence, 90);
    ASSERT_EQ(ops.conf.log.rules.size(), 1U);
    EXPECT_EQ(ops.conf.log.rules[0].destination, "last");
    EXPECT_EQ(checks[3].conf.conf_id, "last");
    EXPECT_EQ(checks[3].conf.frequency, 60);
    EXPECT_TRUE(checks[3].conf.log.rules.empty());
}

TEST(group_checks, makes_the_tree_again) {
    planned_check first = {.path = {"a", "x"}, .conf = {.id = "x"}};
    planned_check second = {.path = {"c", "z"}, .conf = {.id = "z"}};
    planned_check third = {.path = {"a", "b", "y"}, .conf = {.id = "y"}};
    auto tree = group_checks({first, second, third});
    ASSERT_EQ(tree.size(), 2U);
    EXPECT_EQ(tree[0].id, "a");
    ASSERT_EQ(tree[0].checks.size(), 1U);
    EXPECT_EQ(tree[0].checks[0].id, "x");
    ASSERT_EQ(tree[0].groups.size(), 1U);
    EXPECT_EQ(tree[0].groups[0].id, "b");
    EXPECT_EQ(tree[0].groups[0].checks[0].id, "y");
    EXPECT_EQ(tree[1].id, "c");
}
