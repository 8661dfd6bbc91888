#include "probes/hw/sense_data.h"

#include "fakes/hex.h"

#include <gtest/gtest.h>

static sense_facts decode(const std::string &sense) {
    sense_facts found;
    decode_sense(reinterpret_cast<const uint8_t *>(sense.data()), static_cast<uint32_t>(sense.size()),
                 &found);
    return found;
}

// A drive's answer to CHECK POWER MODE, as a kernel gives it.
static const std::string DESCRIPTORS =
    bytes("72 01 00 1D 00 00 00 0E 09 0C 00 00 00 FF 00 00 00 00 00 00 00 50");
static const std::string FIXED = bytes("70 00 01 00 50 00 FF 0A 00 00 00 00 00 1D 00 00 00 00");

TEST(sense, with_descriptors_has_registers) {
    sense_facts found = decode(DESCRIPTORS);
    EXPECT_TRUE(found.known);
    EXPECT_EQ(found.key, SENSE_RECOVERED);
    EXPECT_EQ(found.asc, 0x00);
    EXPECT_EQ(found.ascq, 0x1D);
    EXPECT_TRUE(found.has_registers);
    EXPECT_EQ(found.ata_error, 0x00);
    EXPECT_EQ(found.ata_count, 0xFF);
    EXPECT_EQ(found.ata_status, 0x50);
}

TEST(sense, of_fixed_format_has_registers) {
    sense_facts found = decode(FIXED);
    EXPECT_TRUE(found.known);
    EXPECT_EQ(found.key, SENSE_RECOVERED);
    EXPECT_EQ(found.ascq, 0x1D);
    EXPECT_TRUE(found.has_registers);
    EXPECT_EQ(found.ata_count, 0xFF);
    EXPECT_EQ(found.ata_status, 0x50);
}

TEST(sense, of_fixed_format_with_another_reason_has_no_registers) {
    sense_facts found = decode(bytes("70 00 05 00 50 00 FF 0A 00 00 00 00 20 00 00 00 00 00"));
    EXPECT_EQ(found.key, SENSE_ILLEGAL_REQUEST);
    EXPECT_EQ(found.asc, 0x20);
    EXPECT_FALSE(found.has_registers);
    EXPECT_EQ(found.ata_status, 0);
}

TEST(sense, finds_registers_behind_other_descriptors) {
    sense_facts found = decode(bytes("72 0B 00 00 00 00 00 1A 00 0A 80 00 00 00 00 00 00 00 00 00"
                                     "09 0C 00 04 00 07 00 00 00 00 00 00 00 51"));
    EXPECT_EQ(found.key, 0x0B);
    EXPECT_TRUE(found.has_registers);
    EXPECT_EQ(found.ata_error, 4);
    EXPECT_EQ(found.ata_count, 7);
    EXPECT_EQ(found.ata_status, 0x51);
}

TEST(sense, that_is_cut_short_has_no_registers) {
    for (size_t length = 0; length < DESCRIPTORS.size(); length++) {
        EXPECT_FALSE(decode(DESCRIPTORS.substr(0, length)).has_registers) << length;
        EXPECT_EQ(decode(DESCRIPTORS.substr(0, length)).known, length >= 8) << length;
    }
    for (size_t length = 0; length < 14; length++)
        EXPECT_FALSE(decode(FIXED.substr(0, length)).known) << length;
}

TEST(sense, of_a_deferred_error_reads_alike) {
    std::string deferred = DESCRIPTORS;
    deferred[0] = 0x73;
    EXPECT_TRUE(decode(deferred).has_registers);
    deferred = FIXED;
    deferred[0] = '\xF1'; // with its valid bit
    EXPECT_TRUE(decode(deferred).has_registers);
}

TEST(sense, of_an_unknown_format_is_unknown) {
    for (int format : {0x00, 0x6F, 0x74, 0x7F}) {
        std::string sense = DESCRIPTORS;
        sense[0] = static_cast<char>(format);
        EXPECT_FALSE(decode(sense).known);
        EXPECT_FALSE(decode(sense).has_registers);
    }
}

TEST(sense, with_endless_descriptors_ends) {
    std::string sense(64, '\0'); // descriptors of no length
    sense[0] = 0x72;
    EXPECT_FALSE(decode(sense).has_registers);
}
