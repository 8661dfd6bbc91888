#include "probes/os/diskstats.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

names whole_disks(const std::string &text) {
    names found;
    disk_line line;
    for (const char *at = text.c_str(); next_disk_line(&at, &line);)
        if (is_whole_disk(text.c_str(), line)) found.emplace_back(line.name);
    return found;
}

names disks_of(const char *machine) {
    return whole_disks(recorded_machine(machine).text("/proc/diskstats"));
}

std::string line_of(const std::string &head) {
    return head + " 1 2 3 4 5 6 7 8 9 10 11\n";
}

bool reads(const std::string &text) {
    disk_line line;
    const char *at = text.c_str();
    return next_disk_line(&at, &line);
}

} // namespace

TEST(disk_lines, hold_eleven_counts) {
    std::string text = line_of("   8       0 sda");
    const char *at = text.c_str();
    disk_line line;
    ASSERT_TRUE(next_disk_line(&at, &line));
    EXPECT_EQ(line.major, 8U);
    EXPECT_EQ(line.minor, 0U);
    EXPECT_STREQ(line.name, "sda");
    const disk_counts &counts = line.counts;
    EXPECT_EQ(counts.reads, 1U);
    EXPECT_EQ(counts.reads_merged, 2U);
    EXPECT_EQ(counts.read_sectors, 3U);
    EXPECT_EQ(counts.read_ms, 4U);
    EXPECT_EQ(counts.writes, 5U);
    EXPECT_EQ(counts.writes_merged, 6U);
    EXPECT_EQ(counts.written_sectors, 7U);
    EXPECT_EQ(counts.write_ms, 8U);
    EXPECT_EQ(counts.in_flight, 9U);
    EXPECT_EQ(counts.busy_ms, 10U);
    EXPECT_EQ(counts.weighted_ms, 11U);
    EXPECT_FALSE(next_disk_line(&at, &line));
}

TEST(disk_lines, pass_over_what_is_none) {
    for (const char *text : {"", "8 0 sda 1 2 3 4 5 6 7 8 9 10 11", "8 0 sda 1 2 3 4\n", "8 0 sda\n", "8\n",
                             "\n", "8 0  1 2 3 4 5 6 7 8 9 10 11\n", "-8 0 sda 1 2 3 4 5 6 7 8 9 10 11\n",
                             "8 -1 sda 1 2 3 4 5 6 7 8 9 10 11\n", "8 0 sda 1 2 3 4 -5 6 7 8 9 10 11\n",
                             "8 0 sda 1 2 3 4 99999999999999999999 6 7 8 9 10 11\n",
                             "x 0 sda 1 2 3 4 5 6 7 8 9 10 11\n", "1048576 0 sda 1 2 3 4 5 6 7 8 9 10 11\n"})
        EXPECT_FALSE(reads(text)) << text;
    EXPECT_FALSE(reads(line_of("8 0 " + std::string(64, 'x'))));
    EXPECT_TRUE(reads(line_of("8 0 " + std::string(63, 'x'))));
    EXPECT_TRUE(reads("junk\n" + line_of("8 0 sd\xFF\"")));
    EXPECT_TRUE(reads("8 0 sda 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n")) << "a newer kernel";
}

TEST(disk_numbers, are_those_that_programs_know) {
    EXPECT_EQ(disk_number(8, 0), 2048U);
    EXPECT_EQ(disk_number(8, 16), 2064U);
    EXPECT_EQ(disk_number(259, 0), 66304U);
    EXPECT_EQ(disk_number(259, 300), 1114924U) << "no other's, though the minor takes more than a byte";
    EXPECT_EQ(disk_number(104, 0), 26624U);
}

TEST(whole_disks, are_neither_partitions_nor_made_of_others) {
    EXPECT_EQ(disks_of("container"), names{"sda"});
    EXPECT_EQ(disks_of("stacked"), names{"sda"});
    names found = disks_of("numa");
    names odd(found.end() - 7, found.end());
    EXPECT_EQ(odd, (names{"nvme8n1", "cciss/c0d0", "md127", "mmcblk0", "mmcblk0boot0", "xvdz1", "zd16"}));
    EXPECT_EQ(found.size(), 1U + 26 + 8 + 7);
    EXPECT_EQ(found[0], "sr0");
    EXPECT_EQ(found[26], "sdz") << "and not sdz1, which was found last";
    EXPECT_EQ(found[27], "nvme0n1");
}

TEST(whole_disks, are_told_by_the_rule_of_the_kernel) {
    std::string text;
    for (const char *name :
         {"sdap", "sdap1", "md0", "md0p1", "md0p", "md1", "cciss/c0d0", "cciss/c0d0p15", "nbd0p2", "123",
          "loop", "looper1", "ram5x", "dm-", "dm-1", "ram15", "zram3", "loop7", "p1"})
        text += line_of(std::string("8 0 ") + name);
    EXPECT_EQ(whole_disks(text), (names{"sdap", "md0", "md0p", "md1", "cciss/c0d0", "nbd0p2", "123", "loop",
                                        "looper1", "ram5x", "dm-", "p1"}));
}

TEST(disk_counts, are_found_by_number_and_name) {
    std::string text = recorded_machine("container").text("/proc/diskstats");
    disk_counts counts;
    uint64_t disks = 0;
    ASSERT_TRUE(parse_disk_counts(text.c_str(), "2048 sda", &counts, &disks));
    EXPECT_EQ(counts.reads, 120034U);
    EXPECT_EQ(counts.weighted_ms, 135043U);
    EXPECT_EQ(disks, 1U);
    for (const char *none : {"2048", "sda", "2049 sda", "2048 sdb", "", "2048 sda "})
        EXPECT_FALSE(parse_disk_counts(text.c_str(), none, &counts, &disks)) << none;
}

TEST(disk_counts, are_summed_over_whole_disks) {
    std::string text = line_of("8 0 sda") + line_of("8 1 sda1") + line_of("7 0 loop0") + line_of("8 16 sdb");
    disk_counts counts;
    uint64_t disks = 0;
    ASSERT_TRUE(parse_disk_counts(text.c_str(), "_Total", &counts, &disks));
    EXPECT_EQ(disks, 2U);
    EXPECT_EQ(counts.reads, 2U);
    EXPECT_EQ(counts.weighted_ms, 22U);
    EXPECT_FALSE(parse_disk_counts(line_of("7 0 loop0").c_str(), "_Total", &counts, &disks));
    EXPECT_FALSE(parse_disk_counts("", "_Total", &counts, &disks));
}

TEST(find_device_counts, takes_disks_partitions_and_volumes_by_their_number) {
    std::string text = recorded_machine("numa").text("/proc/diskstats");
    disk_counts counts;
    ASSERT_TRUE(find_device_counts(text.c_str(), 8, 18, &counts));
    EXPECT_EQ(counts.reads, 1000U);
    ASSERT_TRUE(find_device_counts(text.c_str(), 259, 300, &counts));
    EXPECT_EQ(counts.reads, 5U);
    ASSERT_TRUE(find_device_counts(text.c_str(), 253, 3, &counts));
    EXPECT_EQ(counts.reads, 2000U);
    EXPECT_FALSE(find_device_counts(text.c_str(), 253, 7, &counts));
    EXPECT_FALSE(find_device_counts(text.c_str(), 0, 8, &counts));
    EXPECT_FALSE(find_device_counts("", 8, 0, &counts));
}

TEST(find_device_counts, wants_a_sound_line) {
    disk_counts counts;
    std::string whole = line_of("8 0 sda");
    EXPECT_TRUE(find_device_counts(whole.c_str(), 8, 0, &counts));
    EXPECT_FALSE(find_device_counts(whole.substr(0, whole.size() - 1).c_str(), 8, 0, &counts)) << "cut off";
    EXPECT_FALSE(find_device_counts("8 0 sda 1 2 3 4 5 6 7 8 -9 10 11\n", 8, 0, &counts));
    EXPECT_FALSE(find_device_counts("8 0 sda 1 2 3 4\n", 8, 0, &counts)) << "a partition of an old kernel";
    EXPECT_FALSE(find_device_counts("8 0\n", 8, 0, &counts));
    EXPECT_FALSE(find_device_counts(line_of("-8 0 sda").c_str(), 8, 0, &counts));
}
