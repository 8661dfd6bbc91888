#include "probes/hw/kernel_lists.h"

#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/hw/fake_kernel.h"

#include <gtest/gtest.h>

namespace {

struct kernel_lists : testing::Test {
    test_host host;
    fake_kernel kernel;
    ~kernel_lists() override { EXPECT_EQ(host.blocks, 0); }
};

std::vector<std::string> names_of(name_list *list) {
    std::vector<std::string> names(list->names, list->names + list->count);
    free_names(list);
    return names;
}

using names = std::vector<std::string>;

} // namespace

TEST_F(kernel_lists, of_names_are_sorted_by_their_bytes) {
    EXPECT_EQ(names_of(parse_names(text_copy("sdb\nsda\nsdaa\nnvme0n1\n"))),
              (names{"nvme0n1", "sda", "sdaa", "sdb"}));
    EXPECT_EQ(names_of(parse_names(text_copy(""))), names{});
    EXPECT_EQ(names_of(parse_names(text_copy("\n\nsda\n\n"))), names{"sda"});
    EXPECT_EQ(names_of(parse_names(text_copy("sda\ncut off"))), names{"sda"});
}

TEST_F(kernel_lists, free_the_text_without_memory) {
    for (uint32_t n = 1; n <= 2; n++) {
        char *text = text_copy("sda\n");
        host.fail_allocation = n;
        EXPECT_EQ(parse_names(text), nullptr);
    }
}

TEST_F(kernel_lists, come_from_folders_of_any_length) {
    names expected;
    for (int i = 10000; i < 14000; i++) {
        expected.push_back("disk" + std::to_string(i));
        kernel.files["/sys/block/" + expected.back()] = "";
    }
    EXPECT_EQ(names_of(read_names("/sys/block/")), expected);
}

TEST_F(kernel_lists, of_a_missing_folder_are_empty) {
    EXPECT_EQ(names_of(read_names("/sys/block/")), names{});
}

TEST_F(kernel_lists, are_absent_without_memory) {
    kernel.files["/sys/block/sda"] = "";
    for (uint32_t n = 1; n <= 3; n++) {
        host.fail_allocation = n;
        EXPECT_EQ(read_names("/sys/block/"), nullptr) << n;
    }
}

TEST_F(kernel_lists, read_a_word_without_its_blanks) {
    char word[8] = "before";
    EXPECT_FALSE(read_word_file("/none", word, sizeof word));
    struct {
        const char *text, *word;
    } static constexpr CASES[] = {
        {"ATA     \n", "ATA"}, {"  \tx y\nmore", "x y"}, {"", ""}, {"   ", ""}, {"123456789", "1234567"}};
    for (const auto &row : CASES) {
        kernel.files["/file"] = row.text;
        EXPECT_TRUE(read_word_file("/file", word, sizeof word));
        EXPECT_STREQ(word, row.word);
    }
}

TEST_F(kernel_lists, leave_out_what_is_no_disk) {
    for (const char *name : {"loop0", "loop12", "ram3", "zram0", "dm-7", "sr0", "fd0"})
        EXPECT_FALSE(is_whole_disk_name(name)) << name;
    for (const char *name :
         {"sda", "sdaa", "nvme0n1", "vda", "mmcblk0", "loopback", "ramdisk", "fdx", "sram"})
        EXPECT_TRUE(is_whole_disk_name(name)) << name;
}

TEST_F(kernel_lists, tell_kinds_of_disks) {
    EXPECT_EQ(kind_of_disk("sda", "ATA", false), DISK_ATA);
    EXPECT_EQ(kind_of_disk("sda", "SEAGATE", true), DISK_ATA);
    EXPECT_EQ(kind_of_disk("sda", "SEAGATE", false), DISK_SCSI);
    EXPECT_EQ(kind_of_disk("sda", "", false), DISK_SCSI);
    EXPECT_EQ(kind_of_disk("nvme0n1", "ATA", true), DISK_NVME);
    EXPECT_EQ(kind_of_disk("vda", "0x1af4", false), DISK_OTHER);
    EXPECT_EQ(kind_of_disk("mmcblk0", "", false), DISK_OTHER);
    EXPECT_EQ(foreign_kind_words(DISK_ATA), nullptr);
    EXPECT_STREQ(foreign_kind_words(DISK_NVME), "an NVMe drive");
    EXPECT_STREQ(foreign_kind_words(DISK_SCSI), "a SCSI or SAS drive");
    EXPECT_STREQ(foreign_kind_words(DISK_OTHER), "a drive without ATA");
}

TEST_F(kernel_lists, read_addresses_of_four_numbers) {
    scsi_address found;
    ASSERT_TRUE(parse_scsi_address("1:2:300:18446744073709551615", &found));
    EXPECT_EQ(found.host, 1U);
    EXPECT_EQ(found.channel, 2U);
    EXPECT_EQ(found.target, 300U);
    EXPECT_EQ(found.lun, UINT64_MAX);
    for (const char *name : {"", "1:2:3", "1:2:3:", "1:2:3:4:5", "a:2:3:4", "1:2:3:x", "1:2:4294967296:0"})
        EXPECT_FALSE(parse_scsi_address(name, &found)) << name;
}

TEST_F(kernel_lists, order_addresses_by_their_numbers) {
    const scsi_address sorted[] = {{0, 0, 0, 5}, {0, 0, 2, 0}, {0, 1, 0, 0}, {2, 0, 0, 0}, {10, 0, 0, 0}};
    for (size_t a = 0; a < 5; a++)
        for (size_t b = 0; b < 5; b++) {
            int order = compare_scsi_addresses(sorted[a], sorted[b]);
            EXPECT_EQ(order < 0, a < b);
            EXPECT_EQ(order == 0, a == b);
        }
}

TEST_F(kernel_lists, give_hosts_in_the_order_of_their_numbers) {
    name_list_guard hosts(parse_names(text_copy("host10\nhost2\nhost0\nhostile\nhost3\nhost\n")));
    const uint32_t expected[] = {0, 2, 3, 10};
    for (uint32_t room = 0; room <= 5; room++) {
        uint32_t numbers[6] = {99, 99, 99, 99, 99, 99};
        uint32_t count = std::min(room, 4U);
        EXPECT_EQ(lowest_hosts(hosts.get(), numbers, room), count);
        EXPECT_TRUE(std::equal(expected, expected + count, numbers)) << room;
        EXPECT_EQ(numbers[count], 99U) << room;
    }
}
