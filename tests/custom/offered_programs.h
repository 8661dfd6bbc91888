// Programs that a file names, offered by a scan of it and then ordered: custom checks and actions, on a host
// whose programs are scripted.
#pragma once

#include "custom/scripted_programs.h"
#include "fakes/test_host.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

struct offered_programs : testing::Test {
    test_host host;
    scripted_programs programs;
    devtree root = {};
    devnode *device = alloc_devnode();
    resnode *result = alloc_resnode();

    offered_programs() { config_in_force = heap_new<agent_config>(); }
    ~offered_programs() override {
        free_config(config_in_force);
        config_in_force = nullptr;
        free_devtree(root.children);
        free_devnode(device);
        free_resnode(result);
        EXPECT_EQ(host.blocks, 0);
    }

    // Into an empty tree.
    void scan_file(const std::string &path, const std::string &text, const char *(*scan)(devtree *)) {
        host.write_file(path, text);
        free_devtree(root.children);
        root.children = nullptr;
        EXPECT_SUCCESS(scan(&root));
    }
};
