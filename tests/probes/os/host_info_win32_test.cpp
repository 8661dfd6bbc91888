#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/os/host_info_ops.h"

#include <gtest/gtest.h>
#include <string>

TEST(host_info_ops_host, tells_the_processors) {
    system_facts facts = {};
    host_info_ops_host.GetSystemInfo(&facts);
    EXPECT_EQ(facts.processor_architecture, 9);
    EXPECT_GT(facts.processors, 0U);
    EXPECT_EQ(facts.active_processor_mask & 1, 1U);
    EXPECT_STREQ(facts.machine, "");
}

TEST(host_info_ops_host, tells_the_version_in_numbers) {
    version_facts facts = {};
    EXPECT_TRUE(host_info_ops_host.GetVersionExA(&facts));
    EXPECT_FALSE(facts.in_words);
    EXPECT_EQ(facts.platform_id, 2U);
    EXPECT_GE(facts.major_version, 5U);
    EXPECT_GT(facts.build_number, 0U);
    EXPECT_GE(facts.product_type, 1);
}

TEST(host_info_ops_host, has_a_name_for_the_network) {
    char name[256] = "";
    EXPECT_TRUE(host_info_ops_host.GetComputerNameA(name, sizeof name));
    EXPECT_STRNE(name, "");
    EXPECT_FALSE(host_info_ops_host.GetComputerNameA(name, 1));
}

TEST(host_info_ops_host, needs_memory_for_the_network) {
    test_host host;
    alignas(network_params) char room[600];
    uint32_t size = sizeof room;
    host.fail_allocation = 1;
    EXPECT_EQ(host_info_ops_host.GetNetworkParams(reinterpret_cast<network_params *>(room), &size), 8U);
    host.fail_allocation = 1;
    EXPECT_EQ(host_info_ops_host.GetAdaptersInfo(reinterpret_cast<adapter_facts *>(room), &size), 8U);
    EXPECT_EQ(host.blocks, 0);
}

// A machine without a network has none.
TEST(host_info_ops_host, knows_of_each_adapter_whether_it_leases_its_address) {
    test_host host;
    alignas(adapter_facts) char room[11264];
    uint32_t size = sizeof room;
    auto *first = reinterpret_cast<adapter_facts *>(room);
    uint32_t status = host_info_ops_host.GetAdaptersInfo(first, &size);
    if (status == 232) GTEST_SKIP() << "this machine has no adapter";
    ASSERT_EQ(status, 0U);
    for (const adapter_facts *adapter = first; adapter != nullptr; adapter = adapter->next) {
        EXPECT_TRUE(adapter->lease_known);
        EXPECT_STRNE(adapter->description, "");
        EXPECT_NE(adapter->addresses, nullptr);
        EXPECT_LE(adapter->hardware_length, sizeof adapter->hardware_address);
    }
    EXPECT_EQ(host.blocks, 0);
}
