#include "custom/custom_check.h"

#include "custom/offered_programs.h"
#include "devtree/check_table.h"
#include "platform/agent_log.h"

namespace {

struct custom : offered_programs {
    custom() {
        regex_host = &regex_ops_host;
        config_in_force->custom_chk_conf = text_copy("/etc/custom");
    }
    ~custom() override { custom_check_reset(); }

    void scan(const std::string &conf) { scan_file("/etc/custom", conf, scan_custom); }
    const devtree *group() const { return root.children; }
    // "name type unit description" of each device.
    std::vector<std::string> offered() const {
        std::vector<std::string> rows;
        for (const devnode *one = group()->devices; one != nullptr; one = one->next) {
            EXPECT_STREQ(one->id, one->name);
            EXPECT_STREQ(one->comment, "");
            EXPECT_EQ(one->limits.hint.hint_present, 0U);
            rows.push_back(std::string(one->name) + " " + std::to_string(one->type) + " " +
                           (one->unit != nullptr ? one->unit : "(none)") + " " +
                           std::to_string(one->description));
        }
        return rows;
    }
    const char *check(const char *id) {
        text_replace(&device->id, text_copy(id));
        return check_custom(device, result);
    }
};

using rows = std::vector<std::string>;

} // namespace

TEST_F(custom, checks_are_offered_in_the_order_of_the_file) {
    scan("[a boolean]\ncommand=x\n[b]\ncommand=x\ntype=integer\nunit=files\n"
         "[c]\ncommand=x\ntype=real\nunit=kB\n[d]\ncommand=x\ntype=diff_integer\nunit=%%\n"
         "[e]\ncommand=x\ntype=diff_real\nunit=%\n");
    EXPECT_EQ(offered(),
              (rows{"a boolean 3 (none) 21", "b 0 files 21", "c 7 kB 21", "d 7 %% 21", "e 7 1% 21"}));
    EXPECT_STREQ(group()->id, "custom");
    EXPECT_STREQ(group()->name, "Custom AgentChecks");
    EXPECT_STREQ(group()->name_template, "Custom check %0r");
    EXPECT_EQ(group()->group_flags, 0U);
    EXPECT_EQ(group()->next, nullptr);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Scanning custom checks"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Scan of custom checks complete"));
}

TEST_F(custom, checks_that_the_wire_does_not_take_are_left_out_and_told) {
    std::string fits(128, 'a');
    std::string too_long(129, 'b');
    scan("[" + fits + "]\ncommand=x\nunit=" + fits + "\n[" + too_long +
         "]\ncommand=x\n[c]\ncommand=x\nunit=" + too_long + "\n");
    EXPECT_EQ(offered(), (std::vector<std::string>{fits + " 3 " + fits + " 21"}));
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "\"" + too_long + "\" is not offered: its name or unit has more than 128 characters"));
    EXPECT_TRUE(
        host.logged(LOG_WARNING, "\"c\" is not offered: its name or unit has more than 128 characters"));
}

TEST_F(custom, checks_join_a_group_that_is_there) {
    devtree_child(&root, "custom", "Custom AgentChecks");
    host.write_file("/etc/custom", "[a]\ncommand=x\n");
    EXPECT_EQ(scan_custom(&root), nullptr);
    EXPECT_EQ(offered(), rows{"a 3 (none) 21"});
    EXPECT_EQ(group()->next, nullptr);
}

TEST_F(custom, checks_of_a_bad_file_are_none_and_it_is_told) {
    scan("[a]\ncommand=x\n[b]\ncommand\n");
    EXPECT_EQ(offered(), rows{});
    EXPECT_TRUE(host.logged(LOG_ERROR, "Cannot read custom checks: Expected equalsign"));
    EXPECT_FAILURE(check("a"), "Cannot find custom check name \"a\"");
}

TEST_F(custom, checks_go_with_a_file_that_has_gone_bad) {
    scan("[a]\ncommand=x\n");
    scan("[a\n");
    EXPECT_FAILURE(check("a"), "Cannot find custom check name \"a\"");
    host.files.erase("/etc/custom");
    EXPECT_EQ(scan_custom(&root), nullptr);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Cannot read custom checks: Cannot open file"));
}

TEST_F(custom, checks_without_a_file_are_none) {
    text_replace(&config_in_force->custom_chk_conf, nullptr);
    EXPECT_EQ(scan_custom(&root), nullptr);
    EXPECT_EQ(offered(), rows{});
    EXPECT_EQ(host.count_logged("Cannot read"), 0);
}

TEST_F(custom, check_is_found_by_its_exact_name) {
    scan("[One]\ncommand=x\n[one]\ncommand=y\n[one]\ncommand=z\n");
    EXPECT_SUCCESS(check("one"));
    EXPECT_EQ(programs.started, "z") << "the later section of the file";
    EXPECT_EQ(result->value, 1);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Executing custom check one"));
    EXPECT_FAILURE(check("ONE"), "Cannot find custom check name \"ONE\"");
    EXPECT_EQ(offered().size(), 3U);
}

TEST_F(custom, check_may_have_no_reading) {
    scan("[a]\ncommand=x\nno_value_exitcode=4\n");
    programs.exit_code = 4;
    EXPECT_EQ(check("a"), CHECK_NO_RESULT);
}

TEST_F(custom, check_of_a_rate_starts_afresh_with_each_scan) {
    std::string conf = "[a]\ncommand=x\ntype=diff_integer\n";
    scan(conf);
    programs.reads = {{"Result: 10\n"}};
    EXPECT_FAILURE(check("a"), "Value available after one more reading");
    host.now += 5;
    programs.reads = {{"Result: 20\n"}};
    EXPECT_SUCCESS(check("a"));
    EXPECT_EQ(result->real_value, 2.0);
    scan(conf);
    host.now += 5;
    programs.reads = {{"Result: 30\n"}};
    EXPECT_FAILURE(check("a"), "Value available after one more reading");
}

TEST_F(custom, scan_without_memory_for_the_group_offers_nothing) {
    host.write_file("/etc/custom", "[a]\ncommand=x\n");
    for (uint32_t n = 1; host.log.empty() || !host.logged(LOG_ERROR, "Couldn't allocate devtree_child mem");
         n++) {
        ASSERT_LT(n, 50U);
        host.fail_allocation = n;
        try {
            EXPECT_EQ(scan_custom(&root), nullptr);
        } catch (const process_ended &) {
            EXPECT_TRUE(host.count_logged("alloc_devnode() ran out of memory!") > 0);
        }
        free_devtree(root.children);
        root.children = nullptr;
    }
    host.fail_allocation = 0;
}
