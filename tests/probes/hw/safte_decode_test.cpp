#include "probes/hw/safte_decode.h"

#include "fakes/hex.h"

#include <gtest/gtest.h>

static const uint8_t *data_of(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

static std::string processor_inquiry() {
    std::string reply(96, '\0');
    reply[0] = 3;
    reply.replace(44, 6, "SAF-TE");
    return reply;
}

TEST(is_safte_inquiry, wants_a_processor_and_the_six_letters) {
    std::string reply = processor_inquiry();
    EXPECT_TRUE(is_safte_inquiry(data_of(reply)));
    reply[0] = 0;
    EXPECT_FALSE(is_safte_inquiry(data_of(reply)));
    reply[0] = 0x23; // with a qualifier: not connected
    EXPECT_FALSE(is_safte_inquiry(data_of(reply)));
    for (size_t letter = 44; letter < 50; letter++) {
        reply = processor_inquiry();
        reply[letter] = ' ';
        EXPECT_FALSE(is_safte_inquiry(data_of(reply)));
    }
}

TEST(safte_config, has_its_counts_where_they_stand) {
    std::string reply = bytes("02 03 08 01 04 00 80") + std::string(57, '\xFF');
    safte_config config;
    decode_safte_config(data_of(reply), &config);
    EXPECT_EQ(config.fans, 2);
    EXPECT_EQ(config.psus, 3);
    EXPECT_EQ(config.slots, 8);
    EXPECT_EQ(config.temps, 4);
    EXPECT_TRUE(config.celsius);
    EXPECT_EQ(safte_status_size(config), 2U + 3 + 8 + 4 + 4);
    EXPECT_EQ(safte_slots_size(config), 32U);
    reply[6] = '\x7F';
    decode_safte_config(data_of(reply), &config);
    EXPECT_FALSE(config.celsius);
}

TEST(safte_config, of_the_largest_counts_has_sizes_beyond_a_byte) {
    safte_config config = {255, 255, 255, 255, true};
    EXPECT_EQ(safte_status_size(config), 1024U);
    EXPECT_EQ(safte_slots_size(config), 1020U);
}

TEST(safte_status, is_fans_supplies_slots_two_bytes_and_sensors) {
    safte_config config = {.fans = 2, .psus = 1, .slots = 3, .temps = 2, .celsius = true};
    std::string reply = bytes("11 12 21 31 32 33 41 42 51 52 61 62");
    safte_status status;
    decode_safte_status(data_of(reply), 12, config, &status);
    EXPECT_EQ(status.fans[0], 0x11);
    EXPECT_EQ(status.fans[1], 0x12);
    EXPECT_EQ(status.psus[0], 0x21);
    EXPECT_EQ(status.temps[0], 0x51);
    EXPECT_EQ(status.temps[1], 0x52);
}

TEST(safte_status, is_0_behind_the_last_entry_and_behind_the_reply) {
    safte_config config = {.fans = 2, .psus = 1, .slots = 3, .temps = 2, .celsius = true};
    std::string reply(12, '\xFF');
    safte_status status;
    decode_safte_status(data_of(reply), 9, config, &status);
    EXPECT_EQ(status.fans[1], 0xFF);
    EXPECT_EQ(status.fans[2], 0);
    EXPECT_EQ(status.psus[1], 0);
    EXPECT_EQ(status.temps[0], 0xFF);
    EXPECT_EQ(status.temps[1], 0) << "behind the reply";
    EXPECT_EQ(status.temps[2], 0);
}

TEST(safte_slots, are_four_bytes_each) {
    safte_config config = {.slots = 2};
    std::string reply = bytes("01 02 FF 03 11 12 FF 13");
    safte_slots slots;
    decode_safte_slots(data_of(reply), 8, config, &slots);
    EXPECT_EQ(slots.slots[0].flags0, 0x01);
    EXPECT_EQ(slots.slots[0].flags1, 0x02);
    EXPECT_EQ(slots.slots[0].flags3, 0x03);
    EXPECT_EQ(slots.slots[1].flags0, 0x11);
    EXPECT_EQ(slots.slots[1].flags3, 0x13);
    EXPECT_EQ(slots.slots[2].flags0 | slots.slots[2].flags1 | slots.slots[2].flags3, 0);
    decode_safte_slots(data_of(reply), 7, config, &slots);
    EXPECT_EQ(slots.slots[1].flags1, 0x12);
    EXPECT_EQ(slots.slots[1].flags3, 0);
}

struct meaning {
    int byte;
    int32_t value;
    const char *comment;
};

template <size_t Count>
static void expect_meanings(safte_value (*read)(uint8_t), const meaning (&known)[Count]) {
    for (int byte = 0; byte < 256; byte++) {
        safte_value found = read(static_cast<uint8_t>(byte));
        const meaning *expected = nullptr;
        for (const meaning &row : known)
            if (row.byte == byte) expected = &row;
        if (expected == nullptr) {
            EXPECT_EQ(found.comment, nullptr) << byte;
            continue;
        }
        EXPECT_EQ(found.value, expected->value) << byte;
        EXPECT_STREQ(found.comment, expected->comment);
    }
}

TEST(safte_fan, has_three_states) {
    static constexpr meaning FANS[] = {
        {0, 0, "Fan operational"}, {1, 1, "Fan malfunctioning"}, {2, 2, "Fan not present"}};
    expect_meanings(safte_fan_value, FANS);
}

TEST(safte_psu, has_six_states) {
    static constexpr meaning SUPPLIES[] = {
        {0x00, 0, "Operational and on"},
        {0x01, 1, "Operational, but off"},
        {0x10, 2, "Malfunctioning, but should be on"},
        {0x11, 3, "Malfunctioning, should be off"},
        {0x20, 4, "Not present"},
        {0x21, 5, "Present"},
    };
    expect_meanings(safte_psu_value, SUPPLIES);
}

// ---- slots: byte 3 with a disk is 1, with an active one 5

struct slot_case {
    uint8_t flags0, flags1, flags3;
    bool trusted;
    int32_t value;
    const char *comment;
};

TEST(safte_slot, is_decided_in_the_order_of_its_tests) {
    static constexpr slot_case CASES[] = {
        {0xFF, 0xFF, 0xFE, true, 5, "No disk in slot"},
        {0xFF, 0xFF, 0x00, false, 5, "No disk in slot"},
        {0xFF, 0xFF, 0xFB, true, 4, "Disk not activated"},
        {0xFF, 0xFF, 0xFB, false, 3, "Disk faulty"},
        {0x02, 0x00, 0x05, true, 3, "Disk faulty"},
        {0xFD, 0xFF, 0x05, true, 2, "Predicted disk fault"},
        {0x40, 0x00, 0x05, true, 2, "Predicted disk fault"},
        {0xBD, 0xFF, 0x05, true, 1, "Rebuilding"},
        {0x04, 0x00, 0x05, true, 1, "Rebuilding"},
        {0xB9, 0xFF, 0x05, true, 3, "Rebuild stopped"},
        {0x00, 0x02, 0x05, true, 3, "Rebuild stopped"},
        {0xB9, 0xFD, 0x05, true, 6, "Not configured in any RAID"},
        {0x80, 0x00, 0x05, true, 6, "Not configured in any RAID"},
        {0x39, 0xFD, 0x05, true, 0, "Disk OK, hot spare"},
        {0x01, 0x01, 0x05, true, 0, "Disk OK, hot spare"},
        {0x39, 0xFC, 0x05, true, 0, "Disk OK"},
        {0x01, 0x00, 0x01, false, 0, "Disk OK"},
        {0x38, 0xFD, 0x05, true, 7, "Unknown safte status"},
        {0x00, 0x00, 0x01, false, 7, "Unknown safte status"},
    };
    for (const slot_case &row : CASES) {
        safte_value found = safte_slot_value({row.flags0, row.flags1, row.flags3}, row.trusted);
        EXPECT_EQ(found.value, row.value) << row.comment;
        EXPECT_STREQ(found.comment, row.comment);
    }
}

TEST(safte_slot, is_active_by_bit_2_of_byte_3) {
    EXPECT_TRUE(safte_slot_is_active({0, 0, 4}));
    EXPECT_FALSE(safte_slot_is_active({0xFF, 0xFF, 0xFB}));
}

TEST(safte_temperature, is_in_degrees_celsius) {
    EXPECT_NEAR(safte_temperature(86, false), 24.44, 0.005);
    EXPECT_DOUBLE_EQ(safte_temperature(35, true), 25);
    EXPECT_DOUBLE_EQ(safte_temperature(0, true), -10);
    EXPECT_DOUBLE_EQ(safte_temperature(42, false), 0);
    EXPECT_DOUBLE_EQ(safte_temperature(255, true), 245);
}
