// The host's own counters, as far as every host of this kind has them.

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/os/counter_names.h"
#include "probes/os/disks.h"
#include "probes/os/interfaces.h"
#include "probes/os/perf_browse.h"
#include "probes/os/perf_counter_ops.h"
#include "settings/settings.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

class windows_counters : public testing::Test {
protected:
    const perf_counter_ops *ops = &perf_counter_ops_host;
    pdh_query *query = nullptr;

    void SetUp() override { ASSERT_EQ(ops->PdhOpenQueryA(&query), PDH_OK); }
    void TearDown() override { EXPECT_EQ(ops->PdhCloseQuery(query), PDH_OK); }
};

TEST_F(windows_counters, tell_how_long_the_host_is_up) {
    pdh_counter *counter = nullptr;
    ASSERT_EQ(ops->PdhAddCounterA(query, "\\System\\System Up Time", &counter), PDH_OK);
    ASSERT_EQ(ops->PdhCollectQueryData(query), PDH_OK);
    double value = -1;
    EXPECT_EQ(ops->PdhGetFormattedCounterValue(counter, PDH_FMT_DOUBLE, &value), PDH_OK);
    EXPECT_GT(value, 0);
    EXPECT_EQ(ops->PdhRemoveCounter(counter), PDH_OK);
}

TEST_F(windows_counters, refuse_a_counter_that_is_not_there) {
    pdh_counter *counter = nullptr;
    EXPECT_EQ(ops->PdhAddCounterA(query, "\\System\\No Such Counter", &counter), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(windows_counters, have_no_data_without_a_counter) {
    EXPECT_EQ(ops->PdhCollectQueryData(query), PDH_NO_DATA);
}

TEST_F(windows_counters, know_no_name_that_is_none) {
    uint32_t index = 0;
    EXPECT_NE(ops->PdhLookupPerfIndexByNameA("No Such Name", &index), PDH_OK);
    char name[64];
    uint32_t size = sizeof name;
    EXPECT_NE(ops->PdhLookupPerfNameByIndexA(0x7FFFFFF0, name, &size), PDH_OK);
}

TEST_F(windows_counters, give_the_table_of_english_names_in_two_steps) {
    char little[1];
    uint32_t size = sizeof little;
    ASSERT_EQ(ops->RegQueryValueExA("Counter 009", little, &size), ERROR_MORE_DATA);
    ASSERT_GT(size, 1U);
    std::vector<char> table(size);
    ASSERT_EQ(ops->RegQueryValueExA("Counter 009", table.data(), &size), PDH_OK);
    EXPECT_STREQ(table.data(), "1"); // the index of the first pair
    EXPECT_EQ(table[size - 1], '\0');
}

// A host has these functions. Wine has a name for the first of them without a function behind it, whose call
// ends a program that does not see to it; and it knows no items.

TEST_F(windows_counters, list_objects_or_say_that_they_cannot) {
    for (int i = 0; i < 3; i++) {
        uint32_t size = 0;
        uint32_t status = ops->PdhEnumObjectsA(nullptr, &size, 400, true);
        EXPECT_TRUE(status == PDH_MORE_DATA || status == PDH_FUNCTION_NOT_FOUND) << std::hex << status;
        EXPECT_EQ(size != 0, status == PDH_MORE_DATA);
    }
}

TEST_F(windows_counters, list_items_or_say_that_they_cannot) {
    uint32_t counters = 0;
    uint32_t instances = 0;
    uint32_t status = ops->PdhEnumObjectItemsA("System", nullptr, &counters, nullptr, &instances, 400);
    EXPECT_NE(status, PDH_OK);
    EXPECT_EQ(counters != 0, status == PDH_MORE_DATA);
}

TEST_F(windows_counters, describe_the_uptime_as_a_time) {
    pdh_counter *counter = nullptr;
    ASSERT_EQ(ops->PdhAddCounterA(query, "\\System\\System Up Time", &counter), PDH_OK);
    uint32_t size = 0;
    EXPECT_EQ(ops->PdhGetCounterInfoA(counter, &size, nullptr), PDH_MORE_DATA);
    ASSERT_GE(size, sizeof(counter_description));
    std::vector<uint64_t> record(size / 8 + 1);
    ASSERT_EQ(ops->PdhGetCounterInfoA(counter, &size, record.data()), PDH_OK);
    EXPECT_EQ(reinterpret_cast<const counter_description *>(record.data())->type >> 28, 3U);
}

TEST_F(windows_counters, offer_interfaces_disks_and_counters_or_say_why_not) {
    test_host host;
    agent_config config = {.perf_cnt_level = 200};
    config_in_force = &config;
    perf_counter_host = ops;
    error_host = &error_ops_host;
    counter_names_reset();
    for (auto scan :
         {scan_perfcnts, scan_ifthroughput, static_cast<const char *(*)(devtree *)>(scan_block_devices)}) {
        devtree root = {};
        const char *failure = scan(&root);
        EXPECT_TRUE(failure == nullptr || strstr(failure, "rror") != nullptr ||
                    strstr(failure, "Couldn't") != nullptr)
            << failure;
        free_devtree(root.children);
    }
    counter_names_reset();
    EXPECT_EQ(host.blocks, 0);
    config_in_force = nullptr;
    perf_counter_host = nullptr;
}
