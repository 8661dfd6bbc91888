#include "probes/hw/scsi_layout.h"

#include "fakes/hex.h"

#include <gtest/gtest.h>
#include <vector>

static const uint8_t *data_of(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

static std::string encoded(const std::vector<scsi_unit> &units, uint32_t expected_count) {
    std::string table(INQUIRY_TABLE_SIZE, 'x');
    EXPECT_EQ(encode_inquiry_table(units.data(), static_cast<uint32_t>(units.size()),
                                   reinterpret_cast<uint8_t *>(table.data())),
              expected_count);
    return table;
}

// ---- the table of an adapter's devices

TEST(inquiry_table, is_laid_out_as_the_platform_has_it) {
    std::string table = encoded({{0, 1, 0, true}, {0, 6, 2, false}, {1, 9, 0, false}}, 3);
    EXPECT_EQ(hex(table.substr(0, 56)), "02 00 00 00 "
                                        "02 00 00 00 14 00 00 00 "
                                        "01 00 00 00 2C 00 00 00 "
                                        "00 01 00 01 00 00 00 00 20 00 00 00 "
                                        "00 06 02 00 00 00 00 00 00 00 00 00 "
                                        "01 09 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(table.substr(56), std::string(INQUIRY_TABLE_SIZE - 56, '\0'));
}

TEST(inquiry_table, reads_back) {
    std::string table = encoded({{0, 1, 0, true}, {2, 6, 3, false}}, 2);
    EXPECT_EQ(decode_bus_count(data_of(table)), 3);
    EXPECT_EQ(decode_bus(data_of(table), INQUIRY_TABLE_SIZE, 1).first_offset, 0U);
    uint32_t offset = decode_bus(data_of(table), INQUIRY_TABLE_SIZE, 2).first_offset;
    scsi_device_entry entry;
    ASSERT_TRUE(decode_device(data_of(table), INQUIRY_TABLE_SIZE, offset, &entry));
    EXPECT_EQ(entry.bus, 2);
    EXPECT_EQ(entry.target, 6);
    EXPECT_EQ(entry.lun, 3);
    EXPECT_FALSE(entry.claimed);
    EXPECT_EQ(entry.next_offset, 0U);
}

TEST(inquiry_table, of_no_units_has_no_buses) {
    EXPECT_EQ(encoded({}, 0), std::string(INQUIRY_TABLE_SIZE, '\0'));
}

TEST(inquiry_table, takes_what_fits_and_ends_its_list_there) {
    std::vector<scsi_unit> units;
    for (uint32_t i = 0; i < 200; i++)
        units.push_back({0, static_cast<uint8_t>(i), 0, false});
    std::string table = encoded(units, 169); // 2048 less the heads, by 12
    uint32_t offset = decode_bus(data_of(table), INQUIRY_TABLE_SIZE, 0).first_offset;
    uint32_t count = 0;
    scsi_device_entry entry;
    while (offset != 0 && decode_device(data_of(table), INQUIRY_TABLE_SIZE, offset, &entry)) {
        EXPECT_EQ(entry.target, count++);
        offset = entry.next_offset;
    }
    EXPECT_EQ(count, 169U);
    EXPECT_EQ(offset, 0U);
}

TEST(inquiry_table, gives_no_bus_that_it_does_not_count_or_hold) {
    std::string table = encoded({{0, 1, 0, true}, {3, 6, 3, false}}, 2);
    EXPECT_NE(decode_bus(data_of(table), INQUIRY_TABLE_SIZE, 3).first_offset, 0U);
    EXPECT_EQ(decode_bus(data_of(table), INQUIRY_TABLE_SIZE, 4).first_offset, 0U);
    EXPECT_EQ(decode_bus(data_of(table), 4 + 4 * 8 - 1, 3).first_offset, 0U);
    EXPECT_NE(decode_bus(data_of(table), 4 + 4 * 8, 3).first_offset, 0U);
}

TEST(inquiry_table, gives_no_entry_that_does_not_lie_within_it) {
    std::string table(100, '\x01');
    scsi_device_entry entry;
    EXPECT_TRUE(decode_device(data_of(table), 100, 88, &entry));
    EXPECT_FALSE(decode_device(data_of(table), 100, 89, &entry));
    EXPECT_FALSE(decode_device(data_of(table), 100, UINT32_MAX, &entry));
    EXPECT_FALSE(decode_device(data_of(table), 100, UINT32_MAX - 11, &entry));
    EXPECT_FALSE(decode_device(data_of(table), 11, 0, &entry));
    EXPECT_TRUE(decode_device(data_of(table), 12, 0, &entry));
}

// ---- a command

static const scsi_pass_through COMMAND = {.bus = 1,
                                          .target = 2,
                                          .lun = 3,
                                          .cdb_length = 6,
                                          .data_in = true,
                                          .transfer_length = 96,
                                          .timeout_s = 2,
                                          .data_offset = 92,
                                          .sense_offset = 60,
                                          .cdb = {0x12, 0x60, 0, 0, 0x60, 0}};

static std::string encoded(const scsi_pass_through &command) {
    std::string block(PASS_THROUGH_SIZE, 'x');
    encode_pass_through(command, reinterpret_cast<uint8_t *>(block.data()));
    return block;
}

TEST(pass_through, is_laid_out_as_the_platform_has_it) {
    EXPECT_EQ(hex(encoded(COMMAND)), "38 00 00 01 02 03 06 00 01 00 00 00 60 00 00 00 "
                                     "02 00 00 00 00 00 00 00 5C 00 00 00 00 00 00 00 "
                                     "3C 00 00 00 12 60 00 00 60 00 00 00 00 00 00 00 "
                                     "00 00 00 00 00 00 00 00");
}

TEST(pass_through, reads_back) {
    scsi_pass_through found;
    std::string block = encoded(COMMAND);
    ASSERT_TRUE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 188, &found));
    EXPECT_EQ(encoded(found), block);
}

TEST(pass_through, holds_its_data_against_the_buffer) {
    scsi_pass_through found;
    std::string block = encoded(COMMAND);
    EXPECT_TRUE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 92 + 96, &found));
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 92 + 95, &found));
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 91, &found));
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE - 1, 188, &found));
    scsi_pass_through bad = COMMAND;
    bad.data_offset = 55;
    block = encoded(bad);
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 1000, &found));
    bad = COMMAND;
    bad.transfer_length = UINT32_MAX;
    block = encoded(bad);
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 1000, &found));
}

TEST(pass_through, has_a_command_of_1_to_16_bytes) {
    scsi_pass_through found;
    for (auto [length, sound] : {std::pair{0, false}, {1, true}, {16, true}, {17, false}, {255, false}}) {
        scsi_pass_through command = COMMAND;
        command.cdb_length = static_cast<uint8_t>(length);
        EXPECT_EQ(decode_pass_through(data_of(encoded(command)), PASS_THROUGH_SIZE, 188, &found), sound)
            << length;
    }
}

TEST(pass_through, is_not_one_of_another_length) {
    std::string block = encoded(COMMAND);
    scsi_pass_through found;
    block[0] = 44; // the length on a host of 32 bits
    EXPECT_FALSE(decode_pass_through(data_of(block), PASS_THROUGH_SIZE, 188, &found));
}

TEST(pass_through, takes_an_answer) {
    std::string block = encoded(COMMAND);
    auto *bytes = reinterpret_cast<uint8_t *>(block.data());
    EXPECT_EQ(pass_through_status(bytes), 0);
    set_pass_through_answer(bytes, 2, 0x11223344);
    EXPECT_EQ(pass_through_status(bytes), 2);
    EXPECT_EQ(hex(block.substr(12, 4)), "44 33 22 11");
}
