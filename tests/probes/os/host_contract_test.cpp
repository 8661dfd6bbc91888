// What the drive and memory checks and the host's description rely on, held against this host and, for drives
// and memory, against recorded machines.
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/sockets_ops.h"
#include "platform/text.h"
#include "probes/os/drives.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_info.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory.h"
#include "probes/os/memory_ops.h"
#include "probes/os/recorded_ops.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

struct contract : testing::TestWithParam<const char *> {
    test_host host;
    std::unique_ptr<recorded_machine> machine;

    contract() {
        bool recorded = !text_equal(GetParam(), "this_host");
        if (recorded) machine = std::make_unique<recorded_machine>(GetParam());
        drives_host = recorded ? &recorded_drives_ops : &drives_ops_host;
        memory_host = recorded ? &recorded_memory_ops : &memory_ops_host;
        host_info_host = &host_info_ops_host;
        sockets_host = &sockets_ops_host;
        error_host = &error_ops_host;
        drives_reset();
        memory_reset();
    }
    ~contract() override {
        drives_host = nullptr;
        memory_host = nullptr;
        host_info_host = nullptr;
        sockets_host = nullptr;
    }
};

using drives_contract = contract;
using memory_contract = contract;
using host_info_contract = contract;

std::string host_name(const testing::TestParamInfo<const char *> &kind) {
    return kind.param;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(hosts, drives_contract, testing::Values("this_host", "container", "numa"),
                         host_name);
INSTANTIATE_TEST_SUITE_P(hosts, memory_contract, testing::Values("this_host", "container", "numa"),
                         host_name);
INSTANTIATE_TEST_SUITE_P(hosts, host_info_contract, testing::Values("this_host"), host_name);

TEST_P(drives_contract, has_space_on_every_drive_that_it_offers) {
    devtree root = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    devtree_guard group(root.children);
    for (devnode *device = group != nullptr ? group->devices : nullptr; device; device = device->next) {
        resnode result = {};
        EXPECT_SUCCESS(check_fs(device, &result));
        EXPECT_GE(result.real_value, 0) << device->id;
        EXPECT_LE(result.real_value, device->limits.hint.hint_max) << device->id;
        EXPECT_LE(device->limits.hint.hint_value, device->limits.hint.hint_max) << device->id;
    }
}

TEST_P(drives_contract, offers_its_first_root_where_that_is_fixed) {
    const char *first = drives_host->drive_root(0);
    ASSERT_NE(first, nullptr);
    devtree root = {};
    EXPECT_SUCCESS(scan_mounts(&root));
    devtree_guard group(root.children);
    bool offered = false;
    for (devnode *device = group != nullptr ? group->devices : nullptr; device; device = device->next)
        offered |= text_equal(device->id, first);
    EXPECT_EQ(offered, drives_host->GetDriveTypeA(first) == DRIVE_FIXED);
}

TEST_P(drives_contract, tells_why_there_is_no_space_at_a_path) {
    devnode_guard device(alloc_devnode());
    device->id = text_copy("/no/such/folder");
    resnode result = {};
    const char *failure = check_fs(device.get(), &result);
    ASSERT_NE(failure, nullptr);
    EXPECT_GT(strlen(failure), 5U);
}

TEST_P(drives_contract, finds_no_drive_where_nothing_is_mounted) {
    EXPECT_NE(drives_host->GetDriveTypeA("/no/such/folder"), DRIVE_FIXED);
}

TEST_P(memory_contract, has_parts_that_fit_into_their_wholes) {
    memory_status status = {};
    ASSERT_TRUE(get_memory_status(&status));
    EXPECT_GT(status.available_phys, 0U);
    EXPECT_LE(status.available_phys, status.total_phys);
    EXPECT_LE(status.available_page_file, status.total_page_file);
    EXPECT_LE(status.total_phys, status.total_page_file);
    EXPECT_LE(status.memory_load, 100U);
}

TEST_P(memory_contract, offers_and_checks_three_figures) {
    devtree root = {};
    EXPECT_SUCCESS(scan_meminfo(&root));
    devtree_guard group(root.children);
    for (devnode *device = group->devices; device != nullptr; device = device->next) {
        resnode result = {};
        EXPECT_SUCCESS(check_mem(device, &result));
        EXPECT_GE(result.real_value, 0) << device->id;
        EXPECT_LE(result.real_value, device->limits.hint.hint_max) << device->id;
    }
}

TEST_P(host_info_contract, describes_the_host_within_the_limits_of_the_wire) {
    clinfo_guard list(collect_host_info());
    ASSERT_NE(list, nullptr);
    int processors = 0;
    int named = -1;
    for (const clinfo *line = list.get(); line != nullptr; line = line->next) {
        std::string label = line->label != nullptr ? line->label : "";
        std::string value = line->value != nullptr ? line->value : "";
        EXPECT_LE(label.size(), 128U);
        EXPECT_LE(value.size(), 1024U);
        processors += label.ends_with(" status");
        if (label == "Number of CPUs") named = atoi(value.c_str());
        bool needed = label == "OS Id" || label == "Version" || label == "Architecture";
        EXPECT_TRUE(!needed || !value.empty()) << label;
    }
    EXPECT_GT(processors, 0);
    EXPECT_EQ(processors, named);
}

TEST_P(host_info_contract, refuses_buffers_that_are_too_small) {
    alignas(network_params) char room[8192];
    uint32_t needed = 8;
    EXPECT_EQ(host_info_host->GetNetworkParams(reinterpret_cast<network_params *>(room), &needed),
              NETWORK_BUFFER_OVERFLOW);
    EXPECT_GE(needed, sizeof(network_params));
    uint32_t size = needed;
    EXPECT_EQ(host_info_host->GetNetworkParams(reinterpret_cast<network_params *>(room), &size), 0U);
    size = 8;
    uint32_t status = host_info_host->GetAdaptersInfo(reinterpret_cast<adapter_facts *>(room), &size);
    EXPECT_TRUE(status == NETWORK_BUFFER_OVERFLOW || status == 232) << status;
}
