#include "probes/os/counter_values.h"

#include <gtest/gtest.h>

namespace {

constexpr uint64_t SECOND = 1'000'000'000;

// Two samples two seconds apart.
struct samples {
    counter_history history = {};
    samples(counter_sample first, counter_sample second, uint64_t apart = 2 * SECOND) {
        add_sample(&history, first, SECOND);
        add_sample(&history, second, SECOND + apart);
    }
    // -1 for none.
    double value(counter_type type) const {
        double found = -1;
        return make_counter_value(type, history, &found) ? found : -1;
    }
};

double single(counter_type type, counter_sample only) {
    counter_history history = {};
    add_sample(&history, only, SECOND);
    double found = -1;
    return make_counter_value(type, history, &found) ? found : -1;
}

constexpr counter_type OF_ONE[] = {COUNTER_LEVEL, COUNTER_PART, COUNTER_SECONDS};
constexpr counter_type OF_TWO[] = {COUNTER_QUEUE,      COUNTER_RATE,       COUNTER_PERCENT,
                                   COUNTER_TIME_SHARE, COUNTER_IDLE_SHARE, COUNTER_AVERAGE_TIME,
                                   COUNTER_AVERAGE};

} // namespace

TEST(counter_values, take_one_sample_or_two) {
    counter_history none = {};
    double found = 0;
    for (counter_type type : OF_ONE) {
        EXPECT_FALSE(make_counter_value(type, none, &found));
        EXPECT_NE(single(type, {.value = 5, .base = 2}), -1);
    }
    for (counter_type type : OF_TWO) {
        EXPECT_FALSE(make_counter_value(type, none, &found));
        EXPECT_EQ(single(type, {.value = 5, .base = 2}), -1) << type;
    }
}

TEST(counter_values, of_one_sample_are_parts_of_its_base) {
    EXPECT_EQ(single(COUNTER_LEVEL, {.value = 5, .base = 2}), 2.5);
    EXPECT_EQ(single(COUNTER_SECONDS, {.value = 5, .base = 2}), 2.5);
    EXPECT_EQ(single(COUNTER_PART, {.value = 1, .base = 4}), 25);
    for (counter_type type : OF_ONE)
        EXPECT_EQ(single(type, {.value = 5, .base = 0}), -1) << "of nothing";
}

TEST(counter_values, are_steps_over_time) {
    EXPECT_EQ(samples({100, 0}, {600, 0}).value(COUNTER_RATE), 250);
    // Milliseconds: 500 within 2,000 of time.
    samples half({1000, 1}, {1500, 1});
    EXPECT_EQ(half.value(COUNTER_QUEUE), 0.25);
    EXPECT_EQ(half.value(COUNTER_TIME_SHARE), 25);
    EXPECT_EQ(half.value(COUNTER_IDLE_SHARE), 75);
    samples two({1000, 2}, {1500, 2});
    EXPECT_EQ(two.value(COUNTER_TIME_SHARE), 12.5) << "the mean of two";
    EXPECT_EQ(two.value(COUNTER_IDLE_SHARE), 87.5);
}

TEST(counter_values, are_steps_of_the_base) {
    EXPECT_EQ(samples({100, 10}, {150, 20}).value(COUNTER_AVERAGE), 5);
    EXPECT_EQ(samples({100, 10}, {150, 20}).value(COUNTER_AVERAGE_TIME), 0.005);
    EXPECT_EQ(samples({100, 10}, {100, 10}).value(COUNTER_AVERAGE), 0) << "nothing was done";
    EXPECT_EQ(samples({100, 10}, {100, 10}).value(COUNTER_AVERAGE_TIME), 0);
    EXPECT_EQ(samples({100, 10}, {150, 20}).value(COUNTER_PERCENT), 100);
    EXPECT_EQ(samples({100, 10}, {105, 20}).value(COUNTER_PERCENT), 50);
}

TEST(counter_values, end_shares_at_100) {
    samples more({0, 1}, {5000, 1});
    EXPECT_EQ(more.value(COUNTER_TIME_SHARE), 100);
    EXPECT_EQ(more.value(COUNTER_IDLE_SHARE), 0);
    EXPECT_EQ(more.value(COUNTER_QUEUE), 2.5) << "a queue has no end";
}

TEST(counter_values, are_none_where_the_counter_went_back) {
    for (counter_type type : OF_TWO) {
        double expected = type == COUNTER_PERCENT ? 0 : -1; // a share that goes back is none
        EXPECT_EQ(samples({100, 1}, {99, 2}).value(type), expected) << type;
    }
    for (counter_type type : {COUNTER_AVERAGE, COUNTER_AVERAGE_TIME, COUNTER_PERCENT})
        EXPECT_EQ(samples({100, 10}, {101, 9}).value(type), -1) << type;
}

TEST(counter_values, are_none_where_no_time_has_passed) {
    for (counter_type type : {COUNTER_RATE, COUNTER_QUEUE, COUNTER_TIME_SHARE, COUNTER_IDLE_SHARE}) {
        EXPECT_EQ(samples({100, 1}, {150, 1}, 0).value(type), -1);
        EXPECT_EQ(samples({100, 1}, {150, 1}, -SECOND).value(type), -1);
    }
    EXPECT_EQ(samples({100, 0}, {150, 0}).value(COUNTER_TIME_SHARE), -1) << "a sum of none";
}

TEST(counter_values, go_on_over_a_wrap_of_64_bits) {
    EXPECT_EQ(samples({UINT64_MAX - 9, 0}, {10, 0}).value(COUNTER_RATE), 10);
}

TEST(counter_values, start_over_with_what_has_taken_the_place) {
    samples moved({.value = 10, .base = 1, .origin = 7}, {.value = 20, .base = 1, .origin = 8});
    EXPECT_EQ(moved.value(COUNTER_RATE), -1);
    add_sample(&moved.history, {.value = 26, .base = 1, .origin = 8}, 4 * SECOND);
    EXPECT_EQ(moved.value(COUNTER_RATE), 6);
    add_sample(&moved.history, {.value = 30, .base = 1, .origin = 7}, 5 * SECOND);
    EXPECT_EQ(moved.value(COUNTER_RATE), -1);
    EXPECT_EQ(moved.value(COUNTER_LEVEL), 30) << "a level takes one sample";
}
