// The host's own counters, as far as every host of this kind has them.

#include "fakes/test_host.h"
#include "probes/os/perf_counter_ops.h"

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
