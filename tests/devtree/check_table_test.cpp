#include "devtree/check_table.h"

#include "devtree/fake_checks.h"
#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

static const char *scan_fs(devtree *root) {
    add_device(devtree_child(root, "fs", "File systems"), "C:\\");
    return nullptr;
}
static const char *scan_mem(devtree *root) {
    add_device(devtree_child(root, "mem", "Memory"), "phys");
    return "only half of it";
}
static const char *scan_nothing(devtree *) {
    return nullptr;
}

class check_tables : public testing::Test {
protected:
    test_host host;
    agent_config config = {};
    check_entry table[5] = {{.name = "fs", .scan = scan_fs},
                            {.name = "ifevents"},
                            {.name = "mem", .scan = scan_mem},
                            {.name = "log", .scan = scan_nothing, .flags = CHECK_SELF_QUEUE},
                            {}};

    void SetUp() override {
        check_table = table;
        config_in_force = &config;
        fake_checks_reset();
    }
    void TearDown() override {
        fake_checks_reset();
        config_in_force = nullptr;
        check_table = nullptr;
        EXPECT_EQ(host.blocks, 0);
    }

    static std::string scan() { return shape_of(devtree_guard(scan_devices()).get()); }

    // The families that this setting leaves on, by a scan.
    std::string left_on_by(const char *setting) {
        std::string text = setting;
        config.disable_checks = text.data();
        scan();
        std::string on;
        for (const check_entry *entry = table; entry->name != nullptr; entry++)
            if ((entry->flags & CHECK_DISABLED) == 0)
                on += (on.empty() ? "" : " ") + std::string(entry->name);
        config.disable_checks = nullptr;
        return on;
    }
};

TEST_F(check_tables, find_a_row_by_its_exact_name) {
    EXPECT_EQ(find_check_entry("mem"), &table[2]);
    EXPECT_EQ(find_check_entry("MEM"), nullptr);
    EXPECT_EQ(find_check_entry("me"), nullptr);
    EXPECT_EQ(find_check_entry(""), nullptr);
}

TEST_F(check_tables, are_scanned_in_their_order) {
    EXPECT_EQ(scan(), "fs[C:\\] mem[phys]");
    std::vector<std::string> lines;
    for (const logged_line &line : host.log)
        lines.push_back(std::to_string(line.level) + " " + line.text);
    EXPECT_EQ(lines, (std::vector<std::string>{"-1 Scanning fs", "-1 Scanning mem",
                                               "2 scan[mem]: only half of it", "-1 Scanning log"}));
}

TEST_F(check_tables, find_nothing_in_an_empty_host) {
    table[0].scan = table[2].scan = scan_nothing;
    EXPECT_EQ(scan_devices(), nullptr);
}

TEST_F(check_tables, give_top_groups_without_a_parent) {
    devtree_guard tree(scan_devices());
    for (const devtree *group = tree.get(); group != nullptr; group = group->next)
        EXPECT_EQ(group->parent, nullptr) << group->id;
    EXPECT_EQ(group_at_depth(tree->devices, 1), tree.get());
}

TEST_F(check_tables, disable_families_by_their_names) {
    EXPECT_EQ(left_on_by("fs"), "ifevents mem log");
    EXPECT_EQ(left_on_by("fs,log"), "ifevents mem");
    EXPECT_EQ(left_on_by("fs log"), "ifevents mem");
    EXPECT_EQ(left_on_by(" ,, log , fs,"), "ifevents mem");
    EXPECT_EQ(left_on_by("f,fsx,FS,lo,me*"), "fs ifevents mem log");
    EXPECT_EQ(left_on_by("ifevents"), "fs mem log"); // one without a scan of its own
    EXPECT_EQ(left_on_by("x,*"), "");
    EXPECT_EQ(left_on_by("**"), "fs ifevents mem log");
    EXPECT_EQ(left_on_by(","), "fs ifevents mem log");
}

TEST_F(check_tables, do_not_scan_what_is_disabled) {
    char setting[] = "fs";
    config.disable_checks = setting;
    EXPECT_EQ(scan(), "mem[phys]");
    EXPECT_TRUE(host.logged(LOG_WARNING, "Scanning of fs disabled by configuration"));
    EXPECT_EQ(host.count_logged("Scanning fs"), 0);
    EXPECT_EQ(host.count_logged("disabled by configuration"), 1);
}

TEST_F(check_tables, scan_nothing_where_all_is_disabled) {
    char setting[] = "*";
    config.disable_checks = setting;
    EXPECT_EQ(scan(), "");
    EXPECT_EQ(host.count_logged("disabled by configuration"), 4);
}

TEST_F(check_tables, keep_their_other_flags) {
    left_on_by("*");
    EXPECT_EQ(table[3].flags, CHECK_SELF_QUEUE | CHECK_DISABLED);
    left_on_by("fs");
    EXPECT_EQ(table[3].flags, CHECK_SELF_QUEUE);
}

TEST_F(check_tables, enable_a_family_again_at_the_next_scan) {
    EXPECT_EQ(left_on_by("fs"), "ifevents mem log");
    EXPECT_EQ(left_on_by("mem"), "fs ifevents log");
}

TEST_F(check_tables, stay_as_they_are_without_the_setting) {
    left_on_by("fs");
    EXPECT_EQ(scan(), "fs[C:\\] mem[phys]"); // the scan itself asks the setting
    EXPECT_EQ(table[0].flags, CHECK_DISABLED);
}

TEST_F(check_tables, touch_no_probe_in_regression_mode) {
    regression_flag = 1;
    EXPECT_EQ(scan(), "mem[fakephys1]");
    EXPECT_EQ(host.count_logged("Scanning"), 0);
}

TEST_F(check_tables, tell_a_failed_scan_of_regression_mode) {
    regression_flag = 1;
    host.fail_allocation = 1;
    EXPECT_EQ(scan_devices(), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "REGRESS ERROR: Couldn't allocate devtree_child mem"));
}

TEST_F(check_tables, scan_nothing_in_fake_results_mode) {
    fake_results_flag = 1;
    EXPECT_EQ(scan_devices(), nullptr);
    EXPECT_TRUE(host.log.empty());
}

TEST_F(check_tables, scan_for_regression_mode_where_both_are_on) {
    regression_flag = fake_results_flag = 1;
    EXPECT_EQ(scan(), "mem[fakephys1]");
}
