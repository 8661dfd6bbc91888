#include "probes/os/task_files.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

constexpr const char *IO = "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: 5\nwrite_bytes: 6\n"
                           "cancelled_write_bytes: 7\n";

template <class Record, bool (*Next)(const char **at, Record *out)>
std::vector<Record> all_of(const std::string &text) {
    std::vector<Record> found;
    Record record;
    for (const char *at = text.c_str(); Next(&at, &record);)
        found.push_back(record);
    return found;
}

auto calls_of(const std::string &text) {
    return all_of<task_io, next_task_io>(text);
}

auto pages_of(const std::string &text) {
    return all_of<task_pages, next_task_pages>(text);
}

auto memory_of(const std::string &text) {
    return all_of<task_memory, next_task_memory>(text);
}

std::string recorded(const char *path) {
    return recorded_text(std::string(TEST_DATA "/machines/container/proc/7/") + path);
}

std::string without(std::string text, const std::string &part) {
    return text.erase(text.find(part), part.size());
}

} // namespace

TEST(task_io, tells_calls_and_bytes_both_ways) {
    auto found = calls_of(recorded("io"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].read_bytes, 912004117U);
    EXPECT_EQ(found[0].written_bytes, 812004U);
    EXPECT_EQ(found[0].reads, 90112U);
    EXPECT_EQ(found[0].writes, 7104U);
}

TEST(task_io, does_without_what_went_to_disks) {
    EXPECT_EQ(calls_of("rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\n").size(), 1U);
}

TEST(task_io, passes_over_what_is_no_record) {
    for (const char *text :
         {"", "\n", "rchar: 1\n", "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4",
          "rchar: -1\nwchar: 2\nsyscr: 3\nsyscw: 4\n", "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw:\n",
          "rchar: 1\nsyscr: 3\nwchar: 2\nsyscw: 4\n", "rchar: 1 x\nwchar: 2\nsyscr: 3\nsyscw: 4\n",
          "rchar: 18446744073709551616\nwchar: 2\nsyscr: 3\nsyscw: 4\n"})
        EXPECT_TRUE(calls_of(text).empty()) << text;
}

TEST(task_io, goes_from_record_to_record) {
    auto found = calls_of(std::string(IO) + "rchar: 9\n" + IO + std::string(IO).substr(0, 30));
    EXPECT_EQ(found.size(), 2U);
}

TEST(task_pages, tells_what_is_resident_shared_and_private) {
    auto found = pages_of(recorded("statm"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].resident, 412U);
    EXPECT_EQ(found[0].shared, 237U);
    EXPECT_EQ(found[0].data, 133U);
}

TEST(task_pages, passes_over_what_is_no_record) {
    for (const char *text : {"", "\n", "1 2 3 4 5 6\n", "1 2 3 4 5 6 7", "1 2 3 4 5 6 7 8\n",
                             "1 -2 3 4 5 6 7\n", "x 2 3 4 5 6 7\n"})
        EXPECT_TRUE(pages_of(text).empty()) << text;
    EXPECT_EQ(pages_of("1 2 3 4 5 6 7\njunk\n0 0 0 0 0 0 0\n1 2 3").size(), 2U);
}

TEST(task_memory, tells_peaks_and_swap_in_bytes) {
    auto found = memory_of(recorded("status"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].virtual_peak, 3120 * 1024U);
    EXPECT_EQ(found[0].resident_peak, 1900 * 1024U);
    EXPECT_EQ(found[0].swapped, 96 * 1024U);
}

TEST(task_memory, is_0_for_a_process_of_the_kernel) {
    auto found = memory_of("Name:\tkthreadd\nState:\tS (sleeping)\nThreads:\t1\n");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].virtual_peak, 0U);
    EXPECT_EQ(found[0].resident_peak, 0U);
    EXPECT_EQ(found[0].swapped, 0U);
}

TEST(task_memory, wants_the_whole_record) {
    std::string text = recorded("status");
    EXPECT_TRUE(memory_of(without(text, "Name:\tweb server\n")).empty());
    EXPECT_TRUE(memory_of(text.substr(0, text.find("VmSwap"))).empty()) << "cut off ahead of the swap";
    EXPECT_TRUE(memory_of(text.substr(0, text.find("\nSigQ"))).empty()) << "cut off in the threads";
    EXPECT_EQ(memory_of(text.substr(0, text.find("SigQ"))).size(), 1U);
}

TEST(task_memory, keeps_records_apart) {
    auto found =
        memory_of(recorded("status") + "Name:\tcut\nVmSwap:\t 9 kB\n" + "Name:\tkthreadd\nThreads:\t1\n");
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[1].virtual_peak, 0U);
    EXPECT_EQ(found[1].swapped, 0U);
}

TEST(task_memory, ends_at_what_64_bits_hold) {
    auto found = memory_of("Name:\tx\nVmPeak:\t18446744073709551615 kB\nVmSwap:\t-1 kB\nThreads:\t1\n");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].virtual_peak, UINT64_MAX / 1024 * 1024);
    EXPECT_EQ(found[0].swapped, 0U);
}
