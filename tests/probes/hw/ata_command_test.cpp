#include "probes/hw/ata_command.h"

#include "fakes/hex.h"

#include <cstring>
#include <gtest/gtest.h>

static std::string block_of(const ata_registers &registers, ata_form form, bool data_in) {
    sg_request request;
    memset(request.cdb, 'x', sizeof request.cdb);
    encode_ata_command(registers, form, data_in, &request);
    return hex(std::string(reinterpret_cast<char *>(request.cdb), request.cdb_length));
}

static const ata_registers READ_VALUES = {.features = 0xD0,
                                          .count = 1,
                                          .lba_low = 1,
                                          .lba_mid = 0x4F,
                                          .lba_high = 0xC2,
                                          .device = 0xA0,
                                          .command = 0xB0};

TEST(ata_command, comes_from_a_command_block) {
    std::string block = bytes("00 00 00 00 D0 01 02 4F C2 A0 B0") + std::string(21, '\xFF');
    ata_registers found;
    decode_command_block(reinterpret_cast<const uint8_t *>(block.data()), &found);
    EXPECT_EQ(found.features, 0xD0);
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.lba_low, 2);
    EXPECT_EQ(found.lba_mid, 0x4F);
    EXPECT_EQ(found.lba_high, 0xC2);
    EXPECT_EQ(found.device, 0xA0);
    EXPECT_EQ(found.command, 0xB0);
}

TEST(ata_command, travels_in_sixteen_bytes) {
    EXPECT_EQ(block_of(READ_VALUES, ATA_16_BYTES, true), "85 08 0E 00 D0 00 01 00 01 00 4F 00 C2 A0 B0 00");
    EXPECT_EQ(block_of(READ_VALUES, ATA_16_BYTES, false), "85 06 20 00 D0 00 01 00 01 00 4F 00 C2 A0 B0 00");
}

TEST(ata_command, travels_in_twelve_bytes) {
    EXPECT_EQ(block_of(READ_VALUES, ATA_12_BYTES, true), "A1 08 0E D0 01 01 4F C2 A0 B0 00 00");
    EXPECT_EQ(block_of(READ_VALUES, ATA_12_BYTES, false), "A1 06 20 D0 01 01 4F C2 A0 B0 00 00");
}

TEST(ata_command, for_the_power_mode_is_e5) {
    EXPECT_EQ(block_of(CHECK_POWER_MODE, ATA_16_BYTES, false),
              "85 06 20 00 00 00 00 00 00 00 00 00 00 00 E5 00");
}

struct answer_case {
    uint8_t status;
    uint16_t host_status;
    uint16_t driver_status;
    const char *sense;
    ata_outcome outcome;
};

constexpr char REGISTERS_GOOD[] = "72 01 00 1D 00 00 00 0E 09 0C 00 00 00 80 00 00 00 00 00 00 00 50";
constexpr char REGISTERS_ERROR[] = "72 0B 00 00 00 00 00 0E 09 0C 00 04 00 80 00 00 00 00 00 00 00 51";
constexpr char REGISTERS_FAULT[] = "72 0B 00 00 00 00 00 0E 09 0C 00 00 00 80 00 00 00 00 00 00 00 70";
constexpr char ILLEGAL_OPERATION[] = "70 00 05 00 00 00 00 0A 00 00 00 00 20 00 00 00 00 00";
constexpr char NOT_READY[] = "70 00 02 00 00 00 00 0A 00 00 00 00 04 01 00 00 00 00";
constexpr char RECOVERED[] = "72 01 00 00 00 00 00 00";

TEST(ata_answer, is_judged_by_its_registers_and_its_sense) {
    static constexpr answer_case CASES[] = {
        {0, 0, 0, "", ATA_DONE},
        {0, 0, 8, REGISTERS_GOOD, ATA_DONE},
        {0, 0, 8, REGISTERS_ERROR, ATA_FAILED},
        {2, 0, 8, REGISTERS_GOOD, ATA_DONE},
        {2, 0, 0, REGISTERS_GOOD, ATA_DONE},
        {2, 0, 8, REGISTERS_ERROR, ATA_FAILED},
        {2, 0, 8, REGISTERS_FAULT, ATA_FAILED},
        {2, 0, 8, ILLEGAL_OPERATION, ATA_REFUSED},
        {2, 0, 8, NOT_READY, ATA_FAILED},
        {2, 0, 8, RECOVERED, ATA_DONE},
        {2, 0, 8, "", ATA_FAILED},
        {8, 0, 0, "", ATA_FAILED}, // busy
        {0, 1, 0, "", ATA_FAILED}, // never reached
        {0, 0, 6, "", ATA_FAILED}, // timed out
        {2, 7, 8, REGISTERS_GOOD, ATA_FAILED},
    };
    for (const answer_case &row : CASES) {
        std::string sense = bytes(row.sense);
        sg_request request = {.status = row.status,
                              .host_status = row.host_status,
                              .driver_status = row.driver_status,
                              .sense_length = static_cast<uint32_t>(sense.size())};
        memcpy(request.sense, sense.data(), sense.size());
        sense_facts facts;
        EXPECT_EQ(judge_ata_answer(request, &facts), row.outcome)
            << int{row.status} << " " << row.host_status << " " << row.driver_status << " " << row.sense;
    }
}

TEST(ata_answer, tells_the_count) {
    std::string sense = bytes(REGISTERS_GOOD);
    sg_request request = {.status = 2, .driver_status = 8, .sense_length = 1000};
    memcpy(request.sense, sense.data(), sense.size());
    sense_facts facts;
    judge_ata_answer(request, &facts);
    EXPECT_TRUE(facts.has_registers);
    EXPECT_EQ(facts.ata_count, 0x80);
}

TEST(power_mode, is_sleep_for_three_counts) {
    for (int count = 0; count < 256; count++)
        EXPECT_EQ(is_standby(static_cast<uint8_t>(count)), count == 0 || count == 1 || count == 0x40)
            << count;
}
