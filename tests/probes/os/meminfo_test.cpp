#include "probes/os/meminfo.h"

#include "probes/os/machine.h"
#include "probes/os/processor_list.h"

#include <gtest/gtest.h>

static constexpr uint64_t KB = 1024;

TEST(parse_meminfo, reads_a_small_container) {
    meminfo memory;
    ASSERT_TRUE(parse_meminfo(recorded_machine("container").text("/proc/meminfo").c_str(), &memory));
    EXPECT_EQ(memory.total, 4030352 * KB);
    EXPECT_EQ(memory.available, 2514480 * KB);
    EXPECT_EQ(memory.swap_total, 0U);
    EXPECT_EQ(memory.swap_free, 0U);
    EXPECT_EQ(memory.committed, 2901312 * KB);
}

TEST(parse_meminfo, reads_terabytes) {
    meminfo memory;
    ASSERT_TRUE(parse_meminfo(recorded_machine("numa").text("/proc/meminfo").c_str(), &memory));
    EXPECT_EQ(memory.total, 3170893824 * KB);
    EXPECT_EQ(memory.swap_free, 60112233 * KB);
}

TEST(parse_meminfo, works_out_what_an_old_kernel_does_not_tell) {
    meminfo memory;
    ASSERT_TRUE(parse_meminfo("MemTotal: 1000 kB\nMemFree: 100 kB\nBuffers: 20 kB\nCached: 300 kB\n"
                              "SwapCached: 900 kB\nShmem: 50 kB\nSReclaimable: 7 kB\n",
                              &memory));
    EXPECT_EQ(memory.available, (100 + 20 + 300 + 7 - 50) * KB);
}

TEST(parse_meminfo, never_subtracts_more_shared_memory_than_is_cached) {
    meminfo memory;
    ASSERT_TRUE(parse_meminfo("MemTotal: 1000 kB\nMemFree: 100 kB\nCached: 30 kB\nShmem: 50 kB\n", &memory));
    EXPECT_EQ(memory.available, 100 * KB);
}

TEST(parse_meminfo, holds_parts_within_their_wholes) {
    meminfo memory;
    ASSERT_TRUE(parse_meminfo(
        "MemTotal: 10 kB\nMemAvailable: 11 kB\nSwapTotal: 5 kB\nSwapFree: 18446744073709551615 kB\n",
        &memory));
    EXPECT_EQ(memory.available, 10 * KB);
    EXPECT_EQ(memory.swap_free, 5 * KB);
}

TEST(parse_meminfo, refuses_what_does_not_tell_the_memory) {
    meminfo memory;
    EXPECT_FALSE(parse_meminfo("", &memory));
    EXPECT_FALSE(parse_meminfo("MemTotal: 10 kB\n", &memory));
    EXPECT_FALSE(parse_meminfo("MemAvailable: 10 kB\nMemFree: 10 kB\n", &memory));
    EXPECT_FALSE(parse_meminfo("MemTotal: 10 kB\nMemAvailable: 9", &memory)) << "the line is cut off";
    EXPECT_FALSE(parse_meminfo("MemTotal: -10 kB\nMemAvailable: 9 kB\n", &memory));
}

TEST(fill_memory_status, puts_memory_and_swap_together) {
    memory_status status = {.length = 64};
    fill_memory_status({.total = 8000, .available = 6000, .swap_total = 500, .swap_free = 300}, &status);
    EXPECT_EQ(status.length, 64U);
    EXPECT_EQ(status.total_phys, 8000U);
    EXPECT_EQ(status.available_phys, 6000U);
    EXPECT_EQ(status.total_page_file, 8500U);
    EXPECT_EQ(status.available_page_file - status.available_phys, 300U);
    EXPECT_EQ(status.memory_load, 24U);
}

TEST(fill_memory_status, has_no_load_above_100) {
    memory_status status = {};
    fill_memory_status({.total = 1}, &status);
    EXPECT_EQ(status.memory_load, 1U);
    fill_memory_status({.total = UINT64_MAX}, &status);
    EXPECT_LE(status.memory_load, 100U);
}

TEST(parse_processor_list, counts_ranges_and_single_processors) {
    uint64_t mask = 0;
    EXPECT_EQ(parse_processor_list("0-3,8,10-11\n", &mask), 7U);
    EXPECT_EQ(mask, 0xD0FU);
}

TEST(parse_processor_list, counts_the_processors_of_recorded_machines) {
    uint64_t mask = 0;
    recorded_machine machine("relay");
    EXPECT_EQ(parse_processor_list(machine.text("/sys/devices/system/cpu/present").c_str(), &mask), 4U);
    EXPECT_EQ(mask, 0x33U);
    EXPECT_EQ(parse_processor_list(machine.text("/sys/devices/system/cpu/online").c_str(), &mask), 2U);
    EXPECT_EQ(mask, 0x11U);
    EXPECT_EQ(
        parse_processor_list(recorded_machine("numa").text("/sys/devices/system/cpu/online").c_str(), &mask),
        382U);
}

TEST(parse_processor_list, counts_beyond_the_mask) {
    uint64_t mask = 0;
    EXPECT_EQ(parse_processor_list("0-16,19-383\n", &mask), 382U);
    EXPECT_EQ(mask, ~(uint64_t{3} << 17));
}

TEST(parse_processor_list, stops_at_what_is_no_range) {
    uint64_t mask = 0;
    EXPECT_EQ(parse_processor_list("", &mask), 0U);
    EXPECT_EQ(parse_processor_list("0,5-2,7", &mask), 1U);
    EXPECT_EQ(parse_processor_list("0-", &mask), 0U);
    EXPECT_EQ(parse_processor_list("0-99999999999", &mask), 0U);
}
