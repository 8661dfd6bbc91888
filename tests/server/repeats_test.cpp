#include "server/repeats.h"

#include <gtest/gtest.h>

namespace {

constexpr int64_t NOW = 1'700'000'000;

// A delivery and what is unsettled before it, in few words.
struct history {
    std::vector<held_result> held;
    std::vector<result_value> values;
    std::vector<delivered_result> delivered;

    void hold(int64_t check, int64_t seconds_ago, int32_t value, uint32_t status = 0) {
        held.push_back({.id = static_cast<int64_t>(held.size()) + 100,
                        .check_id = check,
                        .agent_time = NOW - seconds_ago,
                        .check_time = NOW - seconds_ago,
                        .status = status,
                        .value = value});
    }
    void come(int64_t check, int64_t seconds_ago, const result_value &value, uint32_t status = 0) {
        values.push_back(value);
        delivered.push_back({.check_id = check, .agent_time = NOW - seconds_ago, .status = status});
    }
    repeat_verdict judge() {
        for (size_t i = 0; i < delivered.size(); i++)
            delivered[i].value = &values[i];
        return find_repeats(held, delivered, NOW);
    }
};

using ids = std::vector<int64_t>;

} // namespace

TEST(find_repeats, takes_all_for_new_when_nothing_is_unsettled) {
    history h;
    h.come(1, 5, 7);
    repeat_verdict verdict = h.judge();
    EXPECT_FALSE(verdict.repetition);
    EXPECT_EQ(verdict.repeats, ids{0});
}

TEST(find_repeats, knows_a_delivery_that_comes_again) {
    history h;
    h.hold(1, 20, 7);
    h.hold(1, 10, 8);
    h.hold(2, 15, 9);
    h.come(1, 20, 7);
    h.come(1, 10, 8);
    h.come(2, 15, 9);
    repeat_verdict verdict = h.judge();
    EXPECT_TRUE(verdict.repetition);
    EXPECT_EQ(verdict.repeats, (ids{100, 101, 102}));
}

TEST(find_repeats, takes_what_stands_behind_in_each_queue_for_new) {
    history h;
    h.hold(1, 20, 7);
    h.hold(2, 15, 9);
    h.come(1, 20, 7);
    h.come(1, 5, 7);
    h.come(2, 15, 9);
    h.come(2, 5, 9);
    h.come(3, 5, 1);
    EXPECT_EQ(h.judge().repeats, (ids{100, 0, 101, 0, 0}));
}

TEST(find_repeats, tells_twins_of_one_delivery_apart) {
    history h;
    h.hold(1, 20, 7);
    h.hold(1, 20, 7);
    h.come(1, 20, 7);
    h.come(1, 20, 7);
    h.come(1, 20, 7);
    EXPECT_EQ(h.judge().repeats, (ids{100, 101, 0}));
}

TEST(find_repeats, forgives_two_seconds_of_clock_measurement) {
    for (int64_t shift : {-2, 2}) {
        history h;
        h.hold(1, 20, 7);
        h.come(1, 20 + shift, 7);
        EXPECT_TRUE(h.judge().repetition) << shift;
    }
    for (int64_t shift : {-3, 3}) {
        history h;
        h.hold(1, 20, 7);
        h.come(1, 20 + shift, 7);
        EXPECT_FALSE(h.judge().repetition) << shift;
    }
}

TEST(find_repeats, sees_a_later_reading_of_the_same_value_as_new) {
    history h;
    h.hold(1, 20, 7);
    h.come(1, 10, 7);
    EXPECT_FALSE(h.judge().repetition);
}

TEST(find_repeats, is_contradicted_by_another_value_or_status) {
    history value;
    value.hold(1, 20, 7);
    value.come(1, 20, 8);
    EXPECT_FALSE(value.judge().repetition);
    history status;
    status.hold(1, 20, 7, 0);
    status.come(1, 20, 7, 1);
    EXPECT_FALSE(status.judge().repetition);
    history kind;
    kind.hold(1, 20, 7);
    kind.come(1, 20, 7.0);
    EXPECT_FALSE(kind.judge().repetition);
}

TEST(find_repeats, takes_one_contradiction_for_all) {
    history h;
    h.hold(1, 20, 7);
    h.hold(2, 20, 9);
    h.come(1, 20, 7);
    h.come(2, 20, 10);
    EXPECT_EQ(h.judge().repeats, (ids{0, 0}));
}

TEST(find_repeats, expects_every_queue_of_a_delivery_that_was_not_cut) {
    history h;
    h.hold(1, 20, 7);
    h.hold(2, 20, 9);
    h.come(1, 20, 7);
    EXPECT_FALSE(h.judge().repetition);
}

TEST(find_repeats, expects_whole_queues_of_a_delivery_that_was_not_cut) {
    history h; // a burst of equal lines in one second: the first fifty went, thirty were left
    for (int i = 0; i < 50; i++)
        h.hold(1, 20, 7);
    for (int i = 0; i < 30; i++)
        h.come(1, 20, 7);
    EXPECT_FALSE(h.judge().repetition);
}

TEST(find_repeats, accepts_a_cut_at_fifty) {
    history h;
    for (int i = 0; i < 60; i++)
        h.hold(1, 100 - i, i);
    h.hold(2, 20, 9);
    for (int i = 0; i < 50; i++)
        h.come(1, 100 - i, i);
    repeat_verdict verdict = h.judge();
    EXPECT_TRUE(verdict.repetition);
    EXPECT_EQ(verdict.repeats[49], 149);
}

TEST(find_repeats, accepts_a_head_that_grew_too_old) {
    history h;
    h.hold(1, 90000, 1);
    h.hold(1, 86400, 2);
    h.hold(1, 50000, 3);
    h.come(1, 50000, 3);
    h.come(1, 10, 4);
    repeat_verdict verdict = h.judge();
    EXPECT_TRUE(verdict.repetition);
    EXPECT_EQ(verdict.repeats, (ids{102, 0}));
    EXPECT_EQ(verdict.dropped, (ids{100, 101}));
}

TEST(find_repeats, lets_only_a_day_old_head_go) {
    history h;
    h.hold(1, 86399, 2);
    h.hold(1, 50000, 3);
    h.come(1, 50000, 3);
    EXPECT_FALSE(h.judge().repetition);
}

TEST(find_repeats, accepts_a_queue_that_grew_too_old_as_a_whole) {
    history h;
    h.hold(1, 90000, 1);
    h.hold(2, 20, 9);
    h.come(2, 20, 9);
    EXPECT_TRUE(h.judge().repetition);
}

TEST(find_repeats, takes_an_empty_delivery_for_the_end_of_it) {
    history h;
    h.hold(1, 20, 7);
    EXPECT_FALSE(h.judge().repetition);
}
