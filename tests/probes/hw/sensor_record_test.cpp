#include "probes/hw/sensor_record.h"

#include "platform/agent_log.h"
#include "probes/hw/ipmi_fixture.h"

#include <cstring>

namespace {

struct record_fixture : testing::Test {
    test_host host;
    uint8_t bytes[SDR_SIZE] = {};
    sensor_record record = {};

    ~record_fixture() override {
        free_sensor_records();
        EXPECT_EQ(host.blocks, 0);
    }
    void put(const sdr_words &words) {
        std::vector<uint8_t> made = sdr_bytes(words);
        memset(bytes, 0, sizeof bytes);
        memcpy(bytes, made.data(), made.size());
    }
    const char *decode() {
        return bytes[3] == SDR_FULL ? decode_full_record(bytes, &record)
                                    : decode_compact_record(bytes, &record);
    }
};

using decode_full_record_test = record_fixture;
using decode_compact_record_test = record_fixture;
using id_text = record_fixture;
using sensor_record_list = record_fixture;

} // namespace

TEST_F(decode_full_record_test, takes_each_field_from_its_bits) {
    for (size_t i = 0; i < 48; i++)
        bytes[i] = 0xFF;
    bytes[4] = 59;
    bytes[6] = 0xFE;
    bytes[7] = 0x35;
    bytes[8] = 0x13;
    bytes[9] = 0x85;
    bytes[11] = 0x7F;
    bytes[12] = 0x0D;
    bytes[13] = 0x6F;
    bytes[20] = 0x80 | 5 << 3 | 2 << 1; // two's complement, rate 5, modifier 2, no percentage
    bytes[21] = 1;
    bytes[22] = 20;
    bytes[23] = 0x8B;
    bytes[28] = 0xFD;
    EXPECT_SUCCESS(decode_full_record(bytes, &record));
    EXPECT_EQ(record.lun, 2);
    EXPECT_EQ(record.sensor_number, 0x35);
    EXPECT_EQ(record.entity_id, 0x13U);
    EXPECT_TRUE(record.entity_is_group);
    EXPECT_EQ(record.entity_instance, 5);
    EXPECT_FALSE(record.ignore_if_absent);
    EXPECT_EQ(record.sensor_type, 13U);
    EXPECT_EQ(record.reading_type, 0x6F);
    EXPECT_EQ(record.numeric_format, 2U);
    EXPECT_EQ(record.rate_unit, 5U);
    EXPECT_EQ(record.unit_modifier, 2U);
    EXPECT_FALSE(record.percentage);
    EXPECT_EQ(record.base_unit, 1U);
    EXPECT_EQ(record.modifier_unit, 20U);
    EXPECT_EQ(record.linearization, 11U);
    EXPECT_EQ(record.direction, 1U);
    EXPECT_EQ(record.zero_count, 0U);

    bytes[9] = 0x7F;
    bytes[11] = 0x80;
    bytes[20] = 0x41;
    EXPECT_SUCCESS(decode_full_record(bytes, &record));
    EXPECT_FALSE(record.entity_is_group);
    EXPECT_EQ(record.entity_instance, 127);
    EXPECT_TRUE(record.ignore_if_absent);
    EXPECT_EQ(record.numeric_format, 1U);
    EXPECT_TRUE(record.percentage);
    EXPECT_EQ(record.unit_modifier, 0U);
}

TEST_F(decode_full_record_test, reads_factors_of_ten_bits_and_exponents_of_four) {
    const struct {
        int m, b, r_exp, b_exp;
    } rows[] = {{0, 0, 0, 0},       {1, 2, 3, 4},       {-1, -2, -3, -4},
                {511, -512, 7, -8}, {-512, 511, -8, 7}, {256, -257, 0, -1}};
    for (const auto &row : rows) {
        put({.m = row.m, .b = row.b, .r_exp = row.r_exp, .b_exp = row.b_exp});
        EXPECT_SUCCESS(decode());
        EXPECT_EQ(record.m, row.m);
        EXPECT_EQ(record.b, row.b);
        EXPECT_EQ(record.r_exp, row.r_exp);
        EXPECT_EQ(record.b_exp, row.b_exp);
    }
}

TEST_F(decode_full_record_test, leaves_the_tolerance_beside_the_factors_alone) {
    put({.m = 1, .b = 1});
    bytes[25] |= 0x3F;
    bytes[27] |= 0x3F;
    EXPECT_SUCCESS(decode());
    EXPECT_EQ(record.m, 1);
    EXPECT_EQ(record.b, 1);
}

TEST_F(decode_full_record_test, wants_49_bytes_behind_the_header) {
    put({});
    bytes[4] = 48;
    EXPECT_FAILURE(decode(), "Full Sensor Record too short");
    bytes[4] = 0;
    EXPECT_FAILURE(decode(), "Full Sensor Record too short");
    bytes[4] = 49;
    EXPECT_SUCCESS(decode());
}

TEST_F(decode_compact_record_test, wants_33_bytes_behind_the_header) {
    put({.type = 2});
    bytes[4] = 32;
    EXPECT_FAILURE(decode(), "Compact Sensor Record too short (32 bytes)");
    bytes[4] = 33;
    EXPECT_SUCCESS(decode());
}

TEST_F(decode_compact_record_test, has_no_numbers) {
    put({.type = 2, .lun = 1, .number = 9, .sensor_type = 13, .units = 0x03, .text = "Bay 1"});
    for (size_t i = 23; i < 31; i++)
        bytes[i] = 0xBF;
    EXPECT_SUCCESS(decode());
    EXPECT_EQ(record.numeric_format, 3U) << "whatever its bits say";
    EXPECT_EQ(record.linearization, 0U);
    EXPECT_EQ(record.m, 0);
    EXPECT_EQ(record.b, 0);
    EXPECT_EQ(record.r_exp, 0);
    EXPECT_EQ(record.b_exp, 0);
    EXPECT_EQ(record.direction, 2U);
    EXPECT_EQ(record.lun, 1);
    EXPECT_EQ(record.sensor_number, 9);
    EXPECT_EQ(record.sensor_type, 13U);
    EXPECT_EQ(record.unit_modifier, 1U);
    EXPECT_TRUE(record.percentage);
    EXPECT_STREQ(record.description, "Bay 1");
}

TEST_F(id_text, stands_at_its_place_in_either_kind) {
    put({.text = "CPU Temp"});
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "CPU Temp");
    put({.type = 2, .text = "Bay"});
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "Bay");
}

TEST_F(id_text, has_16_bytes_at_most) {
    put({.text = "0123456789abcdef"});
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "0123456789abcdef");
    put({.text = "0123456789abcdefg"});
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "0123456789abcdef");
    put({.text = "0123456789abcdefghijklmnopqrst"});
    ASSERT_EQ(bytes[47] & 0x1F, 30);
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "0123456789abcdef");
}

TEST_F(id_text, may_be_empty) {
    put({});
    EXPECT_SUCCESS(decode());
    EXPECT_STREQ(record.description, "");
}

TEST_F(id_text, names_a_kind_that_is_not_read) {
    const char *names[] = {"[UNICODE]", "[BCD-plus]", "[6-bit packed ASCII]"};
    for (uint8_t kind = 0; kind < 3; kind++) {
        put({.text_kind = kind, .text = "abc"});
        EXPECT_SUCCESS(decode());
        EXPECT_STREQ(record.description, names[kind]);
    }
}

TEST_F(id_text, has_a_text_of_its_own_for_length_31_of_any_kind) {
    for (int kind = 0; kind < 4; kind++) {
        put({});
        bytes[47] = static_cast<uint8_t>(kind << 6 | 31);
        EXPECT_SUCCESS(decode());
        EXPECT_STREQ(record.description, "[1Fh length buffer]") << kind;
    }
}

TEST_F(sensor_record_list, has_the_latest_at_its_head) {
    for (uint8_t number : {uint8_t{1}, uint8_t{2}}) {
        put({.number = number});
        EXPECT_SUCCESS(parse_full_record(bytes));
    }
    put({.type = 2, .lun = 1, .number = 1});
    EXPECT_SUCCESS(parse_compact_record(bytes));
    ASSERT_NE(sensor_records, nullptr);
    EXPECT_EQ(sensor_records->lun, 1);
    EXPECT_EQ(sensor_records->next->sensor_number, 2);
    EXPECT_EQ(sensor_records->next->next->sensor_number, 1);
    EXPECT_EQ(sensor_records->next->next->next, nullptr);
}

TEST_F(sensor_record_list, finds_by_both_numbers_the_latest_first) {
    for (uint8_t entity : {uint8_t{10}, uint8_t{11}}) {
        put({.number = 5, .entity = entity});
        EXPECT_SUCCESS(parse_full_record(bytes));
    }
    ASSERT_NE(find_sensor_record(0, 5), nullptr);
    EXPECT_EQ(find_sensor_record(0, 5)->entity_id, 11U);
    EXPECT_EQ(find_sensor_record(1, 5), nullptr);
    EXPECT_EQ(find_sensor_record(0, 6), nullptr);
}

TEST_F(sensor_record_list, is_left_alone_by_a_record_that_is_no_good) {
    put({});
    bytes[4] = 1;
    EXPECT_FAILURE(parse_full_record(bytes), "Full Sensor Record too short");
    EXPECT_FAILURE(parse_compact_record(bytes), "Compact Sensor Record too short (1 bytes)");
    bytes[4] = 59;
    host.fail_allocation = 1;
    EXPECT_FAILURE(parse_full_record(bytes), "Out of memory allocating SDR");
    host.fail_allocation = 1;
    EXPECT_FAILURE(parse_compact_record(bytes), "Out of memory allocating SDR");
    EXPECT_EQ(sensor_records, nullptr);
}

TEST_F(sensor_record_list, dumps_each_record_to_the_log) {
    put({.number = 0x21, .text = "CPU Temp"});
    EXPECT_SUCCESS(parse_full_record(bytes));
    ASSERT_GE(host.count_logged("CPU Temp"), 1);
    for (const logged_line &line : host.log)
        EXPECT_EQ(line.level, LOG_TRACE);
}
