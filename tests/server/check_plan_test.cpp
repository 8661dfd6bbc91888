#include "server/check_plan.h"

#include "fakes/test_host.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

device make_device(const std::string &id, uint32_t type, const std::string &unit = "",
                   std::optional<double> maximum = {}) {
    return {.id = id, .type = type, .unit = unit, .hint_max = maximum, .description = 3};
}

policy built_in(const std::string &more = "") {
    policy rules;
    EXPECT_SUCCESS(read_policy(BUILT_IN_POLICY + more, &rules));
    return rules;
}

// The check of one device under a policy, which must want it.
planned_check plan_one(const std::string &family, const device &what, const std::string &more = "") {
    auto checks = plan_checks(built_in(more), {{{family, what.id}, what}});
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
    const char *rule = "[x]\nwarn_low = 1 MB\nalert_low = 7";
    planned_check check = plan_one("x", make_device("a", 7, "kB"), rule);
    EXPECT_DOUBLE_EQ(*check.conf.limits.warn_low, 1024);
    EXPECT_DOUBLE_EQ(*check.conf.limits.alert_low, 7);
    EXPECT_DOUBLE_EQ(*plan_one("x", make_device("a", 7, "B"), rule).conf.limits.warn_low, 1048576);
}

TEST(plan_checks, lets_none_take_a_limit_away) {
    planned_check check = plan_one("mem", make_device("phys", 7, "kB", 1000), "[mem.phys]\nwarn_low = none");
    EXPECT_FALSE(check.conf.limits.warn_low);
    EXPECT_TRUE(check.conf.limits.alert_low);
}

TEST(plan_checks, makes_bitmap_kinds_enumerations) {
    for (uint32_t type : {1, 2, 3, 5, 10, 11, 12, 13}) {
        planned_check check = plan_one("x", make_device("a", type), "[x]\nalert_values = 2\nwarn_values = 0");
        EXPECT_EQ(check.conf.kind, check_kind::enumeration) << type;
        EXPECT_EQ(check.conf.limits.severities, (std::vector<uint32_t>{1, 0, 2}));
    }
}

TEST(plan_checks, leaves_out_logs_actions_and_unknown_types) {
    for (uint32_t type : {6, 8, 9, 14, 99})
        EXPECT_TRUE(
            plan_checks(built_in("[x]\nfrequency = 20"), {{{"x", "a"}, make_device("a", type)}}).empty());
}

TEST(plan_checks, leaves_out_families_that_no_rule_names) {
    EXPECT_TRUE(plan_checks(built_in(), {{{"proc", "init"}, make_device("init", 1)}}).empty());
}

TEST(plan_checks, takes_a_minute_where_no_frequency_is_given) {
    EXPECT_EQ(plan_one("proc", make_device("sshd", 1), "[proc.sshd]\nalert_values = 0").conf.frequency, 60);
    EXPECT_EQ(plan_one("proc", make_device("sshd", 1), "[proc.sshd]\nenabled = yes").conf.frequency, 60);
}

TEST(plan_checks, leaves_out_what_is_not_enabled) {
    policy rules = built_in("[fs./mnt*]\nenabled = no");
    auto checks = plan_checks(
        rules, {{{"fs", "/mnt/cd"}, make_device("/mnt/cd", 7)}, {{"fs", "/"}, make_device("/", 7)}});
    ASSERT_EQ(checks.size(), 1U);
    EXPECT_EQ(checks[0].conf.id, "/");
}

TEST(plan_checks, checks_a_path_once) {
    std::vector<offered_device> twice = {{{"proc", "sh"}, make_device("sh", 1)},
                                         {{"proc", "sh"}, make_device("sh", 1)}};
    EXPECT_EQ(plan_checks(built_in("[proc]\nenabled = yes"), twice).size(), 1U);
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
