// Scans and checks of processes as a server orders them, for any host that is installed.
#pragma once

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/processes.h"
#include "probes/os/processes_ops.h"
#include "settings/settings.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

// The ids that a scan offers, the last process first.
inline std::vector<std::string> scanned_processes() {
    devtree root = {};
    EXPECT_SUCCESS(scan_processes(&root));
    devtree_guard group(root.children);
    std::vector<std::string> found;
    for (const devnode *device = group->devices; device != nullptr; device = device->next)
        found.emplace_back(device->id);
    return found;
}

// The value of a check that must not fail.
inline int checked_process(const std::string &name) {
    devnode_guard device(alloc_devnode());
    device->id = text_copy(name.c_str());
    resnode result = {};
    EXPECT_SUCCESS(check_process(device.get(), &result));
    EXPECT_STREQ(result.comment, result.value != 0 ? "Available" : "Missing");
    heap_free(result.comment);
    return result.value;
}

// The processes that really run, by a snapshot and the old way.
struct real_processes : testing::TestWithParam<bool> {
    test_host host;
    agent_config config = {};

    real_processes() {
        config.use_psapi = GetParam() ? 1 : 0;
        config_in_force = &config;
        processes_host = &processes_ops_host;
        error_host = &error_ops_host;
    }
    ~real_processes() override {
        processes_host = nullptr;
        config_in_force = nullptr;
    }
};

inline std::string way_to_processes(const testing::TestParamInfo<bool> &old) {
    return old.param ? "the_old_way" : "by_snapshot";
}
