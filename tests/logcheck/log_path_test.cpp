#include "logcheck/log_path.h"

#include "fakes/test_host.h"
#include "platform/text.h"

#include <gtest/gtest.h>

class log_path : public testing::Test {
protected:
    test_host host;
    devtree top = {};

    ~log_path() override {
        free_devtree(top.children);
        log_path_style_in_force = &ROOT_PATHS;
        EXPECT_EQ(host.blocks, 0);
    }

    static std::string join(const char *above, const char *name) {
        text_guard path(log_path_join(above, name));
        return path.get();
    }

    // The check "ids.back()" in the groups of the other ids, below "log".
    devnode *make(const std::vector<const char *> &ids) {
        devtree *group = devtree_child(&top, "log", "log");
        top.children->parent = nullptr;
        for (size_t i = 0; i + 1 < ids.size(); i++)
            group = devtree_child(group, ids[i], ids[i]);
        devnode *device = alloc_devnode();
        device->id = text_copy(ids.back());
        devtree_add_devices(group, device);
        return device;
    }
    std::string path_of(const std::vector<const char *> &ids) {
        text_guard path(log_file_path(make(ids)));
        return path.get();
    }
};

TEST_F(log_path, is_joined_by_the_separator_in_force) {
    log_path_style_in_force = &DRIVE_PATHS;
    EXPECT_EQ(join("C:", "logs"), "C:\\logs");
    log_path_style_in_force = &ROOT_PATHS;
    EXPECT_EQ(join("/var", "log"), "/var/log");
}

TEST_F(log_path, has_no_second_separator_behind_the_first_and_none_behind_nothing) {
    log_path_style_in_force = &DRIVE_PATHS;
    EXPECT_EQ(join("C:\\", "logs"), "C:\\logs");
    EXPECT_EQ(join("", "C:"), "C:");
    EXPECT_EQ(join("C:", ""), "C:\\");
    log_path_style_in_force = &ROOT_PATHS;
    EXPECT_EQ(join("/", "var"), "/var");
    EXPECT_EQ(join("/", ""), "/");
    EXPECT_EQ(join("", "/"), "/");
    EXPECT_EQ(join("/a\\", "b"), "/a\\/b");
}

TEST_F(log_path, is_absent_without_memory) {
    host.fail_allocation = 1;
    EXPECT_EQ(log_path_join("a", "b"), nullptr);
}

TEST_F(log_path, of_a_check_is_made_of_its_groups_below_the_top) {
    log_path_style_in_force = &DRIVE_PATHS;
    EXPECT_EQ(path_of({"C:", "logs", "app", "x.log"}), "C:\\logs\\app\\x.log");
}

TEST_F(log_path, of_a_check_below_the_root_has_one_separator_there) {
    EXPECT_EQ(path_of({"/", "var", "log", "syslog"}), "/var/log/syslog");
    EXPECT_EQ(path_of({"/", "x.log"}), "/x.log");
}

TEST_F(log_path, of_a_check_right_below_the_top_is_its_id) {
    EXPECT_EQ(path_of({"System"}), "System");
}

TEST_F(log_path, goes_through_any_number_of_groups) {
    std::vector<const char *> ids(1001, "d");
    ids[0] = "/";
    std::string expected;
    for (int i = 0; i < 1000; i++)
        expected += "/d";
    EXPECT_EQ(path_of(ids), expected);
}

TEST_F(log_path, of_a_check_ends_the_agent_without_memory) {
    const devnode *device = make({"/", "x.log"});
    host.fail_allocation = 1;
    expect_fatal([&] { log_file_path(device); }, "Out of memory");
}
