#include "probes/hw/sensor_reading.h"

#include "platform/agent_log.h"
#include "probes/hw/ipmi_fixture.h"

#include <cmath>
#include <cstring>

namespace {

constexpr std::pair<uint8_t, uint8_t> READING = {4, 0x2D};

struct reading_fixture : ipmi_fixture {
    sensor_record record = {.sensor_number = 0x31, .m = 1, .description = "CPU Temp"};
    resnode result = {};

    reading_fixture() { come_up(); }
    ~reading_fixture() override { heap_free(result.comment); }

    // The next replies, one a read: raw readings with completion code 0.
    void readings(const std::vector<uint8_t> &raws) {
        bmc.readings[0x31].clear();
        for (uint8_t raw : raws)
            bmc.readings[0x31].push_back({0, raw, 0xC0, 0});
    }
    int reads() {
        int count = bmc.count(4, 0x2D);
        bmc.asked.clear();
        return count;
    }
    const char *read_analog() { return read_analog_sensor(&record, &result); }
    const char *read_discrete() { return read_discrete_sensor(&record, &result); }
    double converted(uint8_t raw) {
        double value = -12345;
        EXPECT_SUCCESS(convert_reading(&record, raw, &value));
        return value;
    }
};

using zero_rule = reading_fixture;
using read_analog_sensor_test = reading_fixture;
using convert_reading_test = reading_fixture;
using read_sensor_test = reading_fixture;

struct digital_sensor : reading_fixture {
    digital_sensor() {
        record.numeric_format = FORMAT_NONE;
        record.reading_type = READING_DIGITAL;
    }
};

struct drive_bay : reading_fixture {
    drive_bay() {
        record.numeric_format = FORMAT_NONE;
        record.reading_type = READING_SENSOR_SPECIFIC;
        record.sensor_type = SENSOR_DRIVE_BAY;
        strcpy(record.description, "Bay 1");
    }
    void states(uint8_t first, uint8_t second) { bmc.readings[0x31] = {{0, 0, 0xC0, first, second}}; }
};

} // namespace

// ---- the zero rule

TEST_F(zero_rule, costs_three_reads_twice_and_then_one) {
    readings({0});
    for (int expected : {3, 3, 1, 1, 1}) {
        EXPECT_SUCCESS(read_analog());
        EXPECT_EQ(reads(), expected);
        EXPECT_EQ(result.real_value, 0);
    }
    EXPECT_EQ(record.zero_count, 2U);
}

TEST_F(zero_rule, tells_what_it_does) {
    readings({0});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(host.count_logged("Read RAW value: 0x00 from sensor CPU Temp"), 3);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Read RAW value: 0x00 from sensor CPU Temp"));
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "RAW value is 0 but has not been zero long will re-read(1) to verify"));
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "RAW value is 0 but has not been zero long will re-read(2) to verify"));
    EXPECT_EQ(host.count_logged("re-read"), 2);
    EXPECT_TRUE(host.logged(LOG_TRACE, "RAW value verified 0"));
}

TEST_F(zero_rule, takes_the_first_other_value_and_forgets_a_zero) {
    record.zero_count = 1;
    readings({0, 7, 9});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(reads(), 2);
    EXPECT_EQ(result.real_value, 7);
    EXPECT_EQ(record.zero_count, 0U);
    readings({0, 0, 8});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(reads(), 3);
    EXPECT_EQ(result.real_value, 8);
    EXPECT_EQ(record.zero_count, 0U) << "never below 0";
}

TEST_F(zero_rule, lowers_its_count_at_each_other_value) {
    record.zero_count = 2;
    readings({5});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(record.zero_count, 1U);
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(record.zero_count, 0U);
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(record.zero_count, 0U);
}

TEST_F(zero_rule, believes_a_zero_behind_two_and_verifies_it_behind_one) {
    record.zero_count = 2;
    readings({0});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(reads(), 1);
    EXPECT_EQ(record.zero_count, 2U);
    record.zero_count = 1;
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(reads(), 3);
    EXPECT_EQ(record.zero_count, 2U);
}

TEST_F(zero_rule, is_left_alone_by_a_read_that_fails) {
    record.zero_count = 1;
    bmc.readings[0x31] = {{0, 0}, {0xC3}};
    EXPECT_FAILURE(read_analog(),
                   "Error reading sensor CPU Temp: Timeout while processing command. Response unavailable "
                   "(195)");
    EXPECT_EQ(record.zero_count, 1U);
    readings({0});
    channel.statuses["ExecMethod"] = {0, 0x80041001};
    EXPECT_FAILURE(read_analog(), "Unable to execute method: General failure");
    EXPECT_EQ(record.zero_count, 1U);
}

// ---- analog sensors

TEST_F(read_analog_sensor_test, asks_lun_0_whatever_the_record_says) {
    record.lun = 3;
    readings({1});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(bmc.asked.back(), (bmc_request{4, 0, 0x2D, {0x31}}));
}

TEST_F(read_analog_sensor_test, sets_the_real_value_alone) {
    readings({42});
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(result.real_value, 42);
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(read_analog_sensor_test, fails_at_a_completion_code) {
    bmc.readings[0x31] = {{0xCB, 99}};
    EXPECT_FAILURE(read_analog(),
                   "Error reading sensor CPU Temp: Requested Sensor, data, or record not present (203)");
    EXPECT_EQ(result.real_value, 0);
}

TEST_F(read_analog_sensor_test, cuts_a_failure_at_the_size_of_failures) {
    bmc.readings[0x31] = {{0xCF}};
    EXPECT_EQ(noted_failure(read_analog()).size(), 256U);
}

TEST_F(read_analog_sensor_test, takes_a_reply_without_bytes_for_a_zero) {
    bmc.readings[0x31] = {{0}};
    EXPECT_SUCCESS(read_analog());
    EXPECT_EQ(reads(), 3);
    EXPECT_EQ(result.real_value, 0);
}

TEST_F(read_analog_sensor_test, fails_without_a_response) {
    channel.gives_outputs = false;
    EXPECT_FAILURE(read_analog(), "Got empty read from IPMI sensor");
}

TEST_F(read_analog_sensor_test, fails_with_the_command_and_with_the_conversion) {
    readings({5});
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(read_analog(), "Unable to execute method: RPC link failure");
    record.linearization = 12;
    EXPECT_FAILURE(read_analog(), "Unknown linearization function 12");
}

// ---- the conversion

TEST_F(convert_reading_test, reads_unsigned_numbers) {
    EXPECT_EQ(converted(0), 0);
    EXPECT_EQ(converted(127), 127);
    EXPECT_EQ(converted(255), 255);
}

TEST_F(convert_reading_test, reads_two_s_complement) {
    record.numeric_format = FORMAT_TWOS_COMPLEMENT;
    EXPECT_EQ(converted(127), 127);
    EXPECT_EQ(converted(128), -128);
    EXPECT_EQ(converted(255), -1);
}

TEST_F(convert_reading_test, adds_one_to_any_one_s_complement) {
    record.numeric_format = FORMAT_ONES_COMPLEMENT;
    EXPECT_EQ(converted(5), 6) << "to positive ones too";
    EXPECT_EQ(converted(127), -128);
    EXPECT_EQ(converted(0xFE), -1);
    EXPECT_EQ(converted(0xFF), 0);
}

TEST_F(convert_reading_test, refuses_other_formats) {
    double value = 1;
    record.numeric_format = FORMAT_NONE;
    EXPECT_FAILURE(convert_reading(&record, 1, &value), "Cannot convert sensor value from format 3");
    record.numeric_format = 4;
    EXPECT_FAILURE(convert_reading(&record, 1, &value), "Cannot convert sensor value from format 4");
    EXPECT_EQ(value, 1);
}

TEST_F(convert_reading_test, scales_by_factors_and_exponents) {
    record.m = 3;
    record.b = -5;
    record.b_exp = 2;
    record.r_exp = -1;
    EXPECT_DOUBLE_EQ(converted(200), (3.0 * 200 - 500) / 10);
    EXPECT_TRUE(host.logged(LOG_TRACE, "RAW value is: 200.000000"));
    EXPECT_TRUE(host.logged(LOG_TRACE, " M=3.000000, B=-5.000000, Bexp=2.000000, Rexp=-1.000000"));
    EXPECT_TRUE(host.logged(LOG_TRACE, " Scaled value is: 10.000000"));
    EXPECT_TRUE(host.logged(LOG_TRACE, " Linearized value is: 10.000000"));
}

TEST_F(convert_reading_test, applies_each_linearization) {
    const double expected[] = {8,  std::log(8.0), std::log10(8.0), 3,        std::exp(8.0), 1e8, 256, 0.125,
                               64, 512,           std::sqrt(8.0),  1.0 / 512};
    for (uint32_t code = 0; code <= 11; code++) {
        record.linearization = code;
        EXPECT_DOUBLE_EQ(converted(8), expected[code]) << code;
    }
}

TEST_F(convert_reading_test, takes_the_third_power_and_no_root_for_code_11) {
    record.linearization = 11;
    EXPECT_DOUBLE_EQ(converted(2), 0.125);
}

TEST_F(convert_reading_test, knows_no_other_linearization) {
    double value = 1;
    for (uint32_t code : {12U, 112U, 127U}) {
        record.linearization = code;
        EXPECT_FAILURE(convert_reading(&record, 1, &value),
                       "Unknown linearization function " + std::to_string(code));
    }
    EXPECT_EQ(value, 1);
}

TEST_F(convert_reading_test, may_end_in_no_number) {
    record.linearization = 1;
    record.b = -10;
    EXPECT_TRUE(std::isnan(converted(1))) << "which the check then finds out";
    record.linearization = 7;
    EXPECT_TRUE(std::isinf(converted(10)));
}

// ---- digital sensors

TEST_F(digital_sensor, is_asserted_by_bit_1_of_byte_2) {
    bmc.readings[0x31] = {{0, 1, 0xC0, 0x02, 4}};
    EXPECT_SUCCESS(read_discrete());
    EXPECT_EQ(result.value, 1);
    EXPECT_STREQ(result.comment, "State Asserted");
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "Generic bool value of sensor CPU Temp: 0x1:0xc0:0x2:0x4 State Asserted"));
    EXPECT_EQ(bmc.asked.back(), (bmc_request{4, 0, 0x2D, {0x31}}));
}

TEST_F(digital_sensor, is_deasserted_otherwise) {
    bmc.readings[0x31] = {{0, 0, 0xC0, 0xFD}};
    EXPECT_SUCCESS(read_discrete());
    EXPECT_EQ(result.value, 0);
    EXPECT_STREQ(result.comment, "State Deasserted");
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "Generic bool value of sensor CPU Temp: 0x0:0xc0:0xfd:0x0 State Deasserted"));
}

TEST_F(digital_sensor, looks_at_no_mark_of_the_reading) {
    bmc.readings[0x31] = {{0, 0, 0x20, 2}};
    EXPECT_SUCCESS(read_discrete());
}

TEST_F(digital_sensor, needs_three_bytes) {
    bmc.readings[0x31] = {{0, 1, 0xC0}};
    EXPECT_FAILURE(read_discrete(), "Got 2 bytes in ipmi response, 3 expected.");
    bmc.readings[0x31] = {{0}};
    EXPECT_FAILURE(read_discrete(), "Got empty read from IPMI sensor");
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(digital_sensor, fails_with_the_command_its_code_or_its_response) {
    bmc.readings[0x31] = {{0xC0, 0, 0xC0, 2}};
    EXPECT_FAILURE(read_discrete(),
                   "Error reading sensor CPU Temp: Node Busy. Command could not be processed because command "
                   "processing resources are temporarily unavailable (192)");
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(read_discrete(), "Unable to execute method: RPC link failure");
    channel.gives_outputs = false;
    EXPECT_FAILURE(read_discrete(), "Got empty read from IPMI sensor");
}

TEST_F(digital_sensor, replaces_a_comment) {
    bmc.readings[0x31] = {{0, 0, 0xC0, 2}};
    EXPECT_SUCCESS(read_discrete());
    EXPECT_SUCCESS(read_discrete());
    EXPECT_STREQ(result.comment, "State Asserted");
}

// ---- drive bays

TEST_F(drive_bay, decides_its_state_in_order) {
    const struct {
        uint8_t first, second;
        int32_t value;
        const char *comment;
    } rows[] = {
        {0xFF, 0xFF, 3, "Disk faulty"},
        {0x02, 0, 3, "Disk faulty"},
        {0xFD, 0xFF, 2, "Predicted disk fault"},
        {0x04, 0, 2, "Predicted disk fault"},
        {0xF9, 0xFF, 1, "Rebuild/remap in progress"},
        {0x80, 0, 1, "Rebuild/remap in progress"},
        {0x79, 0xFF, 3, "Rebuild/remap aborted (was not completed normally)"},
        {0, 0x01, 3, "Rebuild/remap aborted (was not completed normally)"},
        {0x79, 0xFE, 0, "Disk OK, hot spare"},
        {0x08, 0, 0, "Disk OK, hot spare"},
        {0x71, 0xFE, 0, "Disk OK"},
        {0x01, 0, 0, "Disk OK"},
        {0x70, 0xFE, 5, "No disk in slot"},
        {0, 0, 5, "No disk in slot"},
    };
    for (const auto &row : rows) {
        states(row.first, row.second);
        EXPECT_SUCCESS(read_discrete());
        EXPECT_EQ(result.value, row.value) << int{row.first} << " " << int{row.second};
        EXPECT_STREQ(result.comment, row.comment);
    }
}

TEST_F(drive_bay, tells_its_bytes) {
    bmc.readings[0x31] = {{0, 0x1A, 0xC0, 0x02, 0x80}};
    EXPECT_SUCCESS(read_discrete());
    EXPECT_TRUE(host.logged(LOG_TRACE, "Discrete value of sensor Bay 1: 0x1a:0xc0:0x2:0x80"));
}

TEST_F(drive_bay, needs_exactly_four_bytes) {
    bmc.readings[0x31] = {{0, 0, 0xC0, 1}};
    EXPECT_FAILURE(read_discrete(), "Got 3 bytes in ipmi response, 4 expected.");
    bmc.readings[0x31] = {{0, 0, 0xC0, 1, 0, 0}};
    EXPECT_FAILURE(read_discrete(), "Got 5 bytes in ipmi response, 4 expected.");
    bmc.readings[0x31] = {{0}};
    EXPECT_FAILURE(read_discrete(), "Got empty read from IPMI sensor");
}

TEST_F(drive_bay, counts_only_while_it_is_watched) {
    const std::pair<uint8_t, const char *> marks[] = {
        {0x00, "All event messages disabled from this sensor"},
        {0x7F, "All event messages disabled from this sensor"},
        {0xBF, "Sensor scanning disabled"},
        {0x80, "Sensor scanning disabled"},
        {0xE0, "Reading/state unavailable"},
        {0xFF, "Reading/state unavailable"},
    };
    for (auto [byte, text] : marks) {
        bmc.readings[0x31] = {{0, 0, byte, 1, 0}};
        EXPECT_FAILURE(read_discrete(), text);
        EXPECT_EQ(result.comment, nullptr);
    }
    bmc.readings[0x31] = {{0, 0, 0xDF, 1, 0}};
    EXPECT_SUCCESS(read_discrete());
}

TEST_F(drive_bay, is_the_only_other_sensor_that_is_read_so) {
    states(1, 0);
    record.sensor_type = 8;
    EXPECT_FAILURE(read_discrete(), "Reading of sensor unsupported");
    EXPECT_TRUE(host.logged(LOG_NORMAL, " Asked to read discrete value from non-supported sensor: Bay 1\n"));
}

// ---- the choice

TEST_F(read_sensor_test, reads_a_digital_sensor_as_one_whatever_its_format) {
    record.reading_type = READING_DIGITAL;
    record.numeric_format = FORMAT_UNSIGNED;
    bmc.readings[0x31] = {{0, 77, 0xC0, 2}};
    EXPECT_SUCCESS(read_sensor(&record, &result));
    EXPECT_EQ(result.value, 1);
    EXPECT_EQ(result.real_value, 0) << "stays unset";
}

TEST_F(read_sensor_test, reads_a_sensor_without_format_as_discrete) {
    record.numeric_format = FORMAT_NONE;
    record.sensor_type = SENSOR_DRIVE_BAY;
    bmc.readings[0x31] = {{0, 77, 0xC0, 1, 0}};
    EXPECT_SUCCESS(read_sensor(&record, &result));
    EXPECT_STREQ(result.comment, "Disk OK");
}

TEST_F(read_sensor_test, reads_all_others_as_analog) {
    record.reading_type = 1;
    bmc.readings[0x31] = {{0, 77, 0xC0, 1, 0}};
    EXPECT_SUCCESS(read_sensor(&record, &result));
    EXPECT_EQ(result.real_value, 77);
    EXPECT_EQ(result.comment, nullptr);
}
