#include "probes/os/proc_stat.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

TEST(parse_processor_times, reads_all_processors_together) {
    recorded_machine machine("container");
    processor_times times;
    ASSERT_TRUE(parse_processor_times(machine.text("/proc/stat").c_str(), "_Total", &times));
    EXPECT_EQ(times.user, 10132153U);
    EXPECT_EQ(times.nice, 2290U);
    EXPECT_EQ(times.system, 3084719U);
    EXPECT_EQ(times.idle, 46828483U);
    EXPECT_EQ(times.iowait, 16683U);
    EXPECT_EQ(times.irq, 0U);
    EXPECT_EQ(times.softirq, 25195U);
    EXPECT_EQ(times.steal, 175628U);
}

TEST(parse_processor_times, reads_one_processor_by_its_number) {
    recorded_machine machine("numa");
    processor_times times;
    ASSERT_TRUE(parse_processor_times(machine.text("/proc/stat").c_str(), "1", &times));
    EXPECT_EQ(times.user, 78960647U);
    EXPECT_EQ(times.idle, 999225578U);
}

TEST(parse_processor_times, finds_no_processor_that_is_switched_off) {
    recorded_machine machine("numa");
    std::string stat = machine.text("/proc/stat");
    processor_times times;
    EXPECT_FALSE(parse_processor_times(stat.c_str(), "17", &times));
    EXPECT_TRUE(parse_processor_times(stat.c_str(), "383", &times));
    EXPECT_FALSE(parse_processor_times(stat.c_str(), "384", &times));
}

TEST(parse_processor_times, takes_a_kernel_with_four_kinds_of_time) {
    processor_times times;
    ASSERT_TRUE(parse_processor_times("cpu  10 20 30 40\n", "_Total", &times));
    EXPECT_EQ(total_time(times), 100U);
    EXPECT_EQ(times.steal, 0U);
}

TEST(parse_processor_times, refuses_lines_that_are_too_short_or_cut_off) {
    processor_times times;
    EXPECT_FALSE(parse_processor_times("cpu  10 20 30\n", "_Total", &times));
    EXPECT_FALSE(parse_processor_times("cpu  10 20 30 40 50", "_Total", &times));
    EXPECT_FALSE(parse_processor_times("", "_Total", &times));
    EXPECT_FALSE(parse_processor_times("cpu0 1 2 3 4\n", "00000000000000000000000000", &times));
}

TEST(processor_shares, add_up_to_the_total) {
    processor_times times = {1, 2, 4, 8, 16, 32, 64, 128};
    EXPECT_EQ(program_time(times), 3U);
    EXPECT_EQ(kernel_time(times), 4U + 32 + 64);
    EXPECT_EQ(idle_time(times), 24U);
    EXPECT_EQ(total_time(times), 255U);
}

TEST(count_processors, counts_lines_with_a_number) {
    EXPECT_EQ(count_processors(recorded_machine("container").text("/proc/stat").c_str()), 2U);
    EXPECT_EQ(count_processors(recorded_machine("numa").text("/proc/stat").c_str()), 382U);
    EXPECT_EQ(count_processors("cpu  1 2 3 4\ncpux 1\ncpufreq 3\ncpu0 1 2 3"), 0U);
}

TEST(next_processor, names_them_in_order) {
    std::string stat = recorded_machine("numa").text("/proc/stat");
    const char *at = stat.c_str();
    char name[PROCESSOR_NAME_SIZE];
    for (int i = 0; i < 17; i++)
        ASSERT_TRUE(next_processor(&at, name));
    EXPECT_STREQ(name, "16");
    ASSERT_TRUE(next_processor(&at, name));
    EXPECT_STREQ(name, "19");
}

TEST(parse_processor_interrupts, adds_up_one_column) {
    recorded_machine machine("container");
    std::string text = machine.text("/proc/interrupts");
    uint64_t sum = 0;
    ASSERT_TRUE(parse_processor_interrupts(text.c_str(), "0", &sum));
    EXPECT_EQ(sum, 9U + 12077 + 631022); // and not the 5 of ERR, which is no processor's
    ASSERT_TRUE(parse_processor_interrupts(text.c_str(), "1", &sum));
    EXPECT_EQ(sum, 1U + 188221 + 630012);
}

TEST(parse_processor_interrupts, goes_by_the_names_of_the_columns) {
    std::string text = recorded_machine("numa").text("/proc/interrupts");
    uint64_t sum = 0;
    ASSERT_TRUE(parse_processor_interrupts(text.c_str(), "383", &sum));
    EXPECT_GE(sum, 1000383U);
    EXPECT_LT(sum, 1000383U + 1000);
    EXPECT_FALSE(parse_processor_interrupts(text.c_str(), "18", &sum));
    ASSERT_TRUE(parse_processor_interrupts(text.c_str(), "38", &sum));
    EXPECT_GE(sum, 1000038U);
    EXPECT_LT(sum, 1000038U + 1000);
}

TEST(parse_processor_interrupts, refuses_a_head_without_rows) {
    uint64_t sum = 0;
    EXPECT_FALSE(parse_processor_interrupts(" CPU0 CPU1", "0", &sum));
    EXPECT_FALSE(parse_processor_interrupts(" CPU0 CPU1\n", "0", &sum));
    EXPECT_FALSE(parse_processor_interrupts(" CPU0 CPU1\n1: 2 3", "0", &sum)) << "the row is cut off";
}

TEST(parse_processor_interrupts, refuses_a_text_without_a_head) {
    uint64_t sum = 0;
    EXPECT_FALSE(parse_processor_interrupts("", "0", &sum));
    EXPECT_FALSE(parse_processor_interrupts("  1: 2 3\n", "0", &sum));
}
