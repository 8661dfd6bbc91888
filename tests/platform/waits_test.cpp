#include "platform/waits.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"

#include <gtest/gtest.h>

static waitable *numbered(uintptr_t number) {
    return reinterpret_cast<waitable *>(number);
}

static std::vector<uintptr_t> waited_for;
static const waits_ops *waits_below;

static int32_t noted_wait(uint32_t count, waitable *const *objects, uint32_t milliseconds) {
    waited_for.clear();
    for (uint32_t i = 0; i < count; i++)
        waited_for.push_back(reinterpret_cast<uintptr_t>(objects[i]));
    return waits_below->WaitForMultipleObjects(count, objects, milliseconds);
}

class wait_tables : public testing::Test {
protected:
    test_host host;
    waits_ops noting;

    void SetUp() override {
        waits_below = waits_host;
        noting = *waits_host;
        noting.WaitForMultipleObjects = noted_wait;
        waits_host = &noting;
        waited_for.clear();
    }
};

using numbers = std::vector<uintptr_t>;

TEST_F(wait_tables, number_wait_events_from_1) {
    EXPECT_EQ(add_wait_event(numbered(10)), 1U);
    EXPECT_EQ(add_wait_event(numbered(20)), 2U);
    host.wait_answers = {1};
    EXPECT_EQ(wait_for_objects(5), 2);
    EXPECT_EQ(waited_for, (numbers{10, 20}));
}

TEST_F(wait_tables, hold_four_wait_events) {
    for (uintptr_t i = 1; i <= 4; i++)
        EXPECT_EQ(add_wait_event(numbered(i)), i);
    EXPECT_EQ(add_wait_event(numbered(5)), 0U);
    wait_for_objects(1);
    EXPECT_EQ(waited_for, (numbers{1, 2, 3, 4}));
}

TEST_F(wait_tables, hold_four_wakeup_events) {
    uint32_t index = 99;
    for (uint32_t i = 1; i <= 4; i++) {
        EXPECT_EQ(add_wakeup_event(numbered(i), &index), 1U);
        EXPECT_EQ(index, i);
    }
    index = 99;
    EXPECT_EQ(add_wakeup_event(numbered(5), &index), 0U);
    EXPECT_EQ(index, 4U);
    EXPECT_EQ(add_wakeup_event(numbered(5), nullptr), 0U);
}

TEST_F(wait_tables, take_a_wakeup_event_without_a_place_for_its_number) {
    EXPECT_EQ(add_wakeup_event(numbered(1), nullptr), 1U);
    host.wait_answers = {0};
    EXPECT_EQ(sleep_interruptible(1), 1);
}

TEST_F(wait_tables, close_the_gap_of_a_removed_event) {
    for (uintptr_t i = 1; i <= 4; i++)
        add_wait_event(numbered(i));
    EXPECT_EQ(del_wait_event(numbered(1)), 1U);
    wait_for_objects(1);
    EXPECT_EQ(waited_for, (numbers{2, 3, 4}));
    EXPECT_EQ(del_wait_event(numbered(3)), 1U);
    wait_for_objects(1);
    EXPECT_EQ(waited_for, (numbers{2, 4}));
    EXPECT_EQ(add_wait_event(numbered(9)), 3U);
}

TEST_F(wait_tables, tell_what_is_not_there) {
    EXPECT_EQ(del_wait_event(numbered(1)), 0U);
    EXPECT_EQ(del_wakeup_event(numbered(1)), 0U);
    add_wait_event(numbered(1));
    EXPECT_EQ(del_wakeup_event(numbered(1)), 0U);
    EXPECT_EQ(del_wait_event(numbered(1)), 1U);
    EXPECT_EQ(del_wait_event(numbered(1)), 0U);
}

TEST_F(wait_tables, stand_apart) {
    add_wait_event(numbered(1));
    add_wakeup_event(numbered(2), nullptr);
    add_wait_event(numbered(3));
    wait_for_objects(1);
    EXPECT_EQ(waited_for, (numbers{1, 3}));
    sleep_interruptible(1);
    EXPECT_EQ(waited_for, (numbers{2}));
    EXPECT_EQ(del_wakeup_event(numbered(2)), 1U);
}

TEST_F(wait_tables, are_not_waited_on_below_one_second) {
    add_wait_event(numbered(1));
    add_wakeup_event(numbered(1), nullptr);
    host.wait_answers = {0};
    for (int64_t seconds : {INT64_C(0), INT64_C(-1), INT64_MIN}) {
        EXPECT_EQ(wait_for_objects(seconds), 0);
        EXPECT_EQ(sleep_interruptible(seconds), 0);
    }
    EXPECT_TRUE(host.waits.empty());
    EXPECT_EQ(wait_for_objects(1), 1); // what was signalled stayed so
}

TEST_F(wait_tables, sleep_where_they_are_empty) {
    EXPECT_EQ(wait_for_objects(3), 0);
    EXPECT_EQ(sleep_interruptible(4), 0);
    EXPECT_EQ(host.sleeps, (std::vector<uint32_t>{3000, 4000}));
    EXPECT_TRUE(host.waits.empty());
}

TEST_F(wait_tables, wait_in_milliseconds_of_32_bits) {
    add_wait_event(numbered(1));
    wait_for_objects(30);
    wait_for_objects(4294968);
    wait_for_objects(INT64_MAX);
    EXPECT_EQ(host.waits, (std::vector<uint32_t>{30000, 704, 4294966296U}));
}

TEST_F(wait_tables, give_0_for_a_time_out) {
    add_wait_event(numbered(1));
    add_wakeup_event(numbered(1), nullptr);
    EXPECT_EQ(wait_for_objects(2), 0);
    EXPECT_EQ(sleep_interruptible(2), 0);
    EXPECT_TRUE(host.log.empty());
}

TEST_F(wait_tables, report_a_failed_wait_of_the_main_loop_alone) {
    add_wait_event(numbered(1));
    add_wakeup_event(numbered(1), nullptr);
    host.wait_answers = {WAIT_OBJECT_FAILED, WAIT_OBJECT_FAILED};
    EXPECT_EQ(sleep_interruptible(2), 0);
    EXPECT_TRUE(host.log.empty());
    EXPECT_EQ(wait_for_objects(2), 0);
    EXPECT_TRUE(host.logged(LOG_ERROR, "wait_for_objects WAIT_FAILED"));
}

TEST_F(wait_tables, are_empty_after_a_reset) {
    add_wait_event(numbered(1));
    add_wakeup_event(numbered(1), nullptr);
    terminate_flag = 1;
    waits_reset();
    EXPECT_EQ(add_wait_event(numbered(2)), 1U);
    EXPECT_EQ(del_wakeup_event(numbered(1)), 0U);
    EXPECT_EQ(terminate_flag, 0);
}
