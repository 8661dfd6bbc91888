#include "devtree/naming.h"

#include "devtree/trees.h"
#include "fakes/test_host.h"

#include <gtest/gtest.h>

class naming : public testing::Test {
protected:
    test_host host;
    devtree_guard top;

    void SetUp() override { top.reset(top_group("fs")); }
    void TearDown() override {
        top.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    static std::string full(const devnode *device) { return text_guard(devnode_full_name(device)).get(); }
    static std::string plain(const devnode *device) { return text_guard(devnode_plain_name(device)).get(); }
    static std::string escaped(const char *text, char separator) {
        return text_guard(escape_component(text, separator)).get();
    }
};

TEST_F(naming, escapes_separators_and_backslashes) {
    EXPECT_EQ(escaped("a.b\\c", '.'), "a\\.b\\\\c");
    EXPECT_EQ(escaped("a.b,c", ','), "a.b\\,c");
    EXPECT_EQ(escaped("...", '.'), "\\.\\.\\.");
    EXPECT_EQ(escaped("", '.'), "");
}

TEST_F(naming, is_absent_for_a_component_when_memory_is_out) {
    host.fail_allocation = 1;
    EXPECT_EQ(escape_component("a", '.'), nullptr);
}

TEST_F(naming, escapes_the_leaf_in_the_full_name_alone) {
    const devnode *drive = add_device(top.get(), "C:\\");
    EXPECT_EQ(full(drive), "fs.C:\\\\");
    EXPECT_EQ(plain(drive), "fs.C:\\");
}

TEST_F(naming, goes_from_the_top_down_with_escaped_groups) {
    devtree *inner = devtree_child(devtree_child(top.get(), "v1.0", ""), "b\\", "");
    const devnode *device = add_device(inner, "x.y");
    EXPECT_EQ(full(device), "fs.v1\\.0.b\\\\.x\\.y");
    EXPECT_EQ(plain(device), "fs.v1\\.0.b\\\\.x.y");
}

TEST_F(naming, needs_no_group) {
    devnode_guard device(alloc_devnode());
    device->id = text_copy("a.b");
    EXPECT_EQ(full(device.get()), "a\\.b");
    EXPECT_EQ(plain(device.get()), "a.b");
}

TEST_F(naming, cuts_at_its_bound) {
    devtree *group = top.get();
    std::string id(127, 'i');
    for (int i = 0; i < 20; i++)
        group = devtree_child(group, id.c_str(), "");
    const devnode *device = add_device(group, "leaf");
    std::string expected = "fs.";
    while (expected.size() < 2047)
        expected += id + ".";
    expected.resize(2047);
    EXPECT_EQ(full(device), expected);
    EXPECT_EQ(plain(device), expected);
}

TEST_F(naming, keeps_a_name_that_just_fits) {
    for (size_t length : {2044U, 2045U}) {
        const devnode *device = add_device(top.get(), std::string(length, 'l').c_str());
        EXPECT_EQ(full(device), "fs." + std::string(2044, 'l'));
    }
}

TEST_F(naming, cuts_within_an_escape) {
    const devnode *device = add_device(top.get(), (std::string(2043, 'l') + ".").c_str());
    EXPECT_EQ(full(device), "fs." + std::string(2043, 'l') + "\\");
    EXPECT_EQ(plain(device), "fs." + std::string(2043, 'l') + ".");
}

TEST_F(naming, ends_the_agent_when_memory_is_out) {
    const devnode *device = add_device(top.get(), "x");
    int64_t blocks = host.blocks;
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        expect_fatal([device] { devnode_full_name(device); }, "alloc_str() ran out of memory!");
        EXPECT_EQ(host.blocks, blocks) << n;
    }
    for (uint32_t n = 1; n <= 2; n++) {
        host.fail_allocation = n;
        expect_fatal([device] { devnode_plain_name(device); }, "alloc_str() ran out of memory!");
        EXPECT_EQ(host.blocks, blocks) << n;
    }
}
