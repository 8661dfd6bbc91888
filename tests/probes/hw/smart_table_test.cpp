#include "probes/hw/smart_table.h"

#include "fakes/scripted_drives.h"
#include "fakes/test_host.h"

#include <gtest/gtest.h>
#include <random>

namespace {

constexpr uint8_t PRE_FAILURE = 1;
constexpr uint8_t ADVISORY = 0;

struct tables {
    test_host host;
    std::string values = std::string(512, '\0');
    std::string thresholds = std::string(512, '\0');

    void slot(uint32_t place, uint8_t flags, uint8_t value, uint8_t threshold, uint8_t id = 5) {
        put_slot(&values, place, id, flags, value);
        put_slot(&thresholds, place, id, threshold);
    }

    smart_verdict judge() const {
        smart_attributes attributes;
        smart_thresholds limits;
        decode_smart_attributes(reinterpret_cast<const uint8_t *>(values.data()), &attributes);
        decode_smart_thresholds(reinterpret_cast<const uint8_t *>(thresholds.data()), &limits);
        return judge_smart(attributes, limits);
    }
};

struct smart_table : testing::Test, tables {};

// The first slots of a drive's tables as it gave them: spin-up time, reallocated sectors, temperature.
constexpr char RECORDED_VALUES[] = "\x0A\x00"
                                   "\x03\x03\x00\x62\x61\x00\x00\x00\x00\x00\x00\x00"
                                   "\x05\x33\x00\x24\x24\x08\x00\x00\x00\x00\x00\x00"
                                   "\xC2\x22\x00\x1E\x2D\x1E\x00\x00\x00\x00\x00\x00";
constexpr char RECORDED_THRESHOLDS[] = "\x01\x00"
                                       "\x03\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                                       "\x05\x24\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                                       "\xC2\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00";

} // namespace

TEST_F(smart_table, of_a_recorded_drive_reads_as_it_stands_there) {
    values.replace(0, sizeof RECORDED_VALUES - 1, RECORDED_VALUES, sizeof RECORDED_VALUES - 1);
    thresholds.replace(0, sizeof RECORDED_THRESHOLDS - 1, RECORDED_THRESHOLDS,
                       sizeof RECORDED_THRESHOLDS - 1);
    EXPECT_EQ(judge(), DRIVE_FAILING);
    EXPECT_TRUE(host.logged(0, "Smart attributes revision: 10"));
    EXPECT_TRUE(host.logged(0, "Smart thresholds revision: 1"));
    EXPECT_TRUE(host.logged(0, "Checking value 0: id: 3, value: 98, id: 3, threshold: 0"));
    EXPECT_TRUE(host.logged(0, "Checking value 1: id: 5, value: 36, id: 5, threshold: 36"));
    EXPECT_TRUE(host.logged(0, "Checking value 2: id: 194, value: 30, id: 194, threshold: 0"));
}

TEST_F(smart_table, has_a_revision_of_two_bytes) {
    values[0] = '\x02';
    values[1] = '\x01';
    thresholds[1] = '\xFF';
    judge();
    EXPECT_TRUE(host.logged(0, "Smart attributes revision: 258"));
    EXPECT_TRUE(host.logged(0, "Smart thresholds revision: 65280"));
}

TEST_F(smart_table, shows_all_thirty_slots_once) {
    judge();
    EXPECT_EQ(host.count_logged("Checking value "), 30);
    EXPECT_TRUE(host.logged(0, "Checking value 29: id: 0, value: 0, id: 0, threshold: 0"));
}

TEST_F(smart_table, without_thresholds_is_ok_whatever_the_values) {
    for (uint32_t place = 0; place < 30; place++)
        slot(place, PRE_FAILURE, 0, 0);
    EXPECT_EQ(judge(), DRIVE_OK);
    EXPECT_EQ(host.count_logged("Something is wrong"), 0);
}

TEST_F(smart_table, ignores_an_empty_slot_below_its_threshold) {
    slot(4, PRE_FAILURE, 1, 50, 0);
    EXPECT_EQ(judge(), DRIVE_OK);
    EXPECT_EQ(host.count_logged("Something is wrong"), 0);
}

TEST_F(smart_table, trips_where_a_value_equals_its_threshold) {
    slot(0, ADVISORY, 50, 50);
    EXPECT_EQ(judge(), DRIVE_PAST_LIFETIME);
    EXPECT_TRUE(host.logged(0, "Something is wrong"));
}

TEST_F(smart_table, is_ok_one_above_the_threshold) {
    slot(0, PRE_FAILURE, 51, 50);
    EXPECT_EQ(judge(), DRIVE_OK);
}

TEST_F(smart_table, trips_below_the_threshold) {
    slot(0, PRE_FAILURE, 49, 50);
    EXPECT_EQ(judge(), DRIVE_FAILING);
}

TEST_F(smart_table, takes_the_highest_score) {
    slot(0, PRE_FAILURE, 1, 50);
    slot(1, ADVISORY, 1, 50);
    EXPECT_EQ(judge(), DRIVE_FAILING);
    EXPECT_EQ(host.count_logged("Something is wrong"), 2);
}

TEST_F(smart_table, tells_advisory_from_pre_failure_by_bit_0_alone) {
    slot(0, 0xFE, 1, 50);
    EXPECT_EQ(judge(), DRIVE_PAST_LIFETIME);
    slot(0, 0xFF, 1, 50);
    EXPECT_EQ(judge(), DRIVE_FAILING);
}

TEST_F(smart_table, looks_at_the_last_slot) {
    slot(29, PRE_FAILURE, 1, 2);
    EXPECT_EQ(judge(), DRIVE_FAILING);
}

TEST_F(smart_table, matches_slots_by_place_and_not_by_id) {
    put_slot(&values, 3, 5, PRE_FAILURE, 10);
    put_slot(&thresholds, 4, 5, 20);
    EXPECT_EQ(judge(), DRIVE_OK);
    put_slot(&thresholds, 3, 99, 20);
    EXPECT_EQ(judge(), DRIVE_FAILING);
}

// A second reading of the rule, over random tables.
TEST_F(smart_table, agrees_with_the_rule_for_random_bytes) {
    std::mt19937 chance(7);
    for (int round = 0; round < 2000; round++) {
        for (uint32_t i = 0; i < 512; i++) {
            values[i] = static_cast<char>(chance());
            thresholds[i] = static_cast<char>(chance() % 4 == 0 ? chance() : 0);
        }
        int expected = 0;
        for (uint32_t i = 0; i < 30; i++) {
            const auto *value = reinterpret_cast<const uint8_t *>(values.data()) + 2 + i * 12;
            const auto *limit = reinterpret_cast<const uint8_t *>(thresholds.data()) + 2 + i * 12;
            if (value[0] != 0 && limit[1] != 0 && value[3] <= limit[1])
                expected = std::max(expected, value[1] % 2 == 1 ? 2 : 1);
        }
        ASSERT_EQ(judge(), expected);
        host.log.clear();
    }
}

TEST(smart_verdict, has_its_words) {
    EXPECT_STREQ(smart_verdict_text(DRIVE_OK), "Drive is OK");
    EXPECT_STREQ(smart_verdict_text(DRIVE_PAST_LIFETIME), "Drive has exceeded lifetime");
    EXPECT_STREQ(smart_verdict_text(DRIVE_FAILING), "Drive is about to fail");
}
