#include "core/start_fixture.h"

#include "core/due_index.h"
#include "devtree/live_trees.h"
#include "platform/clock.h"
#include "platform/text.h"

namespace {

struct schedule : start_fixture {
    schedule() {
        config_in_force = heap_new<agent_config>();
        config_in_force->checkin_freq = 30;
        config_in_force->server_count = 1;
    }

    // As in a tree from the server, nothing is above the top groups.
    devtree *add_group(devtree *parent, const char *id) {
        devtree *group = devtree_child(parent, id, id);
        if (parent == &root) group->parent = nullptr;
        return group;
    }

    devnode *add_device(devtree *group, const char *id, int64_t next_check, uint32_t type = TYPE_CONTINUOUS) {
        devnode *device = alloc_devnode();
        device->id = text_copy(id);
        device->type = type;
        device->next_check = next_check;
        device->frequency = 1;
        device->parent = group;
        devnode **link = &group->devices;
        while (*link != nullptr)
            link = &(*link)->next;
        *link = device;
        return device;
    }

    devnode *add_log(devtree *group, int64_t next_check, int64_t warning, int64_t alert) {
        devnode *device = add_device(group, "log", next_check, TYPE_ADV_LOG);
        device->lognode = alloc_lognode();
        device->lognode->warningSilence = warning;
        device->lognode->alertSilence = alert;
        return device;
    }

    void remember(const char *key, const char *value) { EXPECT_SUCCESS(var_set(var_make(key, value))); }

    devtree root = {};
    ~schedule() override {
        due_index_clear();
        free_devtree(root.children);
    }
};

} // namespace

TEST_F(schedule, hold_grows_with_the_failures) {
    config_in_force->server_count = 1;
    failure_count = 2; // the first failure of a new process
    for (int i = 0; i < 100; i++) {
        int32_t hold = backoff_seconds();
        EXPECT_GE(hold, 9);
        EXPECT_LE(hold, 14);
    }
    failure_count = 8;
    int32_t hold = backoff_seconds();
    EXPECT_GE(hold, 27);
    EXPECT_LE(hold, 32);
}

TEST_F(schedule, fewer_failures_than_servers_do_not_hold_and_draw_no_random_number) {
    config_in_force->server_count = 3;
    failure_count = 2;
    tn_srand(5);
    int32_t first = tn_rand();
    tn_srand(5);
    EXPECT_EQ(backoff_seconds(), 0);
    EXPECT_EQ(tn_rand(), first);
    failure_count = 3;
    EXPECT_GT(backoff_seconds(), 0);
}

TEST_F(schedule, regression_mode_never_holds) {
    failure_count = 8;
    regression_flag = 1;
    EXPECT_EQ(backoff_seconds(), 0);
}

TEST_F(schedule, short_and_unset_periods_hold_as_ten_seconds) {
    failure_count = 1;
    for (int32_t period : {-1, 0, 1, 9, 10}) {
        config_in_force->checkin_freq = period;
        for (int i = 0; i < 20; i++) {
            int32_t hold = backoff_seconds();
            EXPECT_GE(hold, 2) << period;
            EXPECT_LE(hold, 3) << period;
        }
    }
}

TEST_F(schedule, hold_of_a_very_long_period_wraps) {
    config_in_force->checkin_freq = INT32_MAX;
    failure_count = 2;
    int32_t hold = backoff_seconds();
    EXPECT_GE(hold, 214748364); // a tenth of three times the period, which is less by 2 to the 32nd
    EXPECT_LE(hold, 214748364 + 0x7FFF);
    failure_count = 3;
    EXPECT_LE(backoff_seconds(), 0x7FFF);
}

TEST_F(schedule, failures_stop_counting_seven_beyond_the_servers) {
    config_in_force->server_count = 2;
    for (int i = 0; i < 50; i++)
        count_failure();
    EXPECT_EQ(failure_count, 9);
}

TEST_F(schedule, period_is_at_least_ten_seconds_and_sixty_when_unset) {
    last_checkin = 1000;
    for (auto [period, end] : {std::pair{30, 1030}, {1, 1010}, {10, 1010}, {11, 1011}, {-1, 1060}}) {
        config_in_force->checkin_freq = period;
        EXPECT_EQ(checkin_period_end(), end);
    }
}

TEST_F(schedule, checkin_is_overdue_behind_period_and_hold) {
    host.now = 2000;
    last_checkin = 1969;
    EXPECT_TRUE(checkin_overdue());
    last_checkin = 1970;
    EXPECT_FALSE(checkin_overdue()); // at the deadline itself it is not late yet
    last_checkin = 0;
    hold_until = 2000;
    EXPECT_FALSE(checkin_overdue());
    hold_until = 1999;
    EXPECT_TRUE(checkin_overdue());
}

TEST_F(schedule, unset_period_is_always_overdue_unless_held) {
    host.now = 2000;
    last_checkin = 2000;
    config_in_force->checkin_freq = -1;
    EXPECT_TRUE(checkin_overdue());
    hold_until = 2001;
    EXPECT_FALSE(checkin_overdue());
}

TEST_F(schedule, earliest_device_is_next_and_the_first_met_among_equals) {
    devtree *a = add_group(&root, "a");
    devtree *inner = add_group(a, "inner");
    devtree *b = add_group(&root, "b");
    add_device(inner, "x", 50);
    devnode *own = add_device(a, "y", 50);
    devnode *later = add_device(b, "z", 50);
    EXPECT_EQ(find_next_due(root.children), own); // a group's own devices go before its children's
    own->next_check = 51;
    EXPECT_EQ(find_next_due(root.children), inner->devices);
    later->next_check = 49;
    EXPECT_EQ(find_next_due(root.children), later);
    EXPECT_EQ(find_next_due(nullptr), nullptr);
}

TEST_F(schedule, unrun_action_is_the_first_with_time_0) {
    devtree *a = add_group(&root, "a");
    devtree *inner = add_group(a, "inner");
    add_device(a, "ran", 5);
    devnode *waiting = add_device(inner, "waiting", 0);
    add_device(inner, "second", 0);
    EXPECT_EQ(find_unrun_action(root.children), waiting);
    waiting->next_check = 1;
    waiting->next->next_check = 1;
    EXPECT_EQ(find_unrun_action(root.children), nullptr);
}

TEST_F(schedule, burst_marks_every_device) {
    devtree *a = add_group(&root, "a");
    devnode *own = add_device(a, "own", 5);
    devnode *below = add_device(add_group(a, "inner"), "below", 0);
    mark_burst(root.children);
    EXPECT_EQ(own->next_check, 17);
    EXPECT_EQ(below->next_check, 17);
}

TEST_F(schedule, silence_limits_pull_a_log_check_forward) {
    devtree *log = add_group(&root, "log");
    devnode *device = add_log(log, 5000, 100, 300);
    remember("timestamp:log.log", "1000");
    remember("status_sent:log.log", "0");
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 1100);
    device->next_check = 5000;
    remember("status_sent:log.log", "1"); // the warning has been told
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 1300);
    device->next_check = 5000;
    remember("status_sent:log.log", "2");
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 5000);
}

TEST_F(schedule, silence_never_pushes_a_check_back_and_leaves_new_ones_alone) {
    devtree *log = add_group(&root, "log");
    devnode *device = add_log(log, 1050, 100, -1);
    remember("timestamp:log.log", "1000");
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 1050);
    device->next_check = 0;
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 0);
}

TEST_F(schedule, silence_that_is_off_pulls_nothing) {
    devtree *log = add_group(&root, "log");
    devnode *device = add_log(log, 5000, -1, -1);
    find_next_due(root.children);
    EXPECT_EQ(device->next_check, 5000);
}

// The index gives what the walk gives, over random trees and lives.
TEST_F(schedule, index_agrees_with_the_walk) {
    uint32_t seed = 7;
    auto random = [&seed](uint32_t below) {
        seed = seed * 1664525 + 1013904223;
        return (seed >> 8) % below;
    };
    for (int round = 0; round < 200; round++) {
        devtree *group = add_group(&root, "log");
        for (uint32_t i = 0, count = random(40); i < count; i++) {
            if (random(5) == 0)
                group = add_group(random(2) == 0 ? &root : group, std::to_string(random(4)).c_str());
            if (random(6) == 0)
                add_log(group, 1000 + random(50), random(2) == 0 ? -1 : random(200), random(200));
            else
                add_device(group, std::to_string(i).c_str(), 1000 + random(50));
        }
        remember("timestamp:log.log", "990");
        due_index_rebuild(root.children);
        for (int step = 0; step < 60; step++) {
            devnode *due = due_index_next();
            ASSERT_EQ(due, find_next_due(root.children)) << "round " << round << " step " << step;
            if (due == nullptr) break;
            due->next_check = 1010 + step + random(60);
        }
        due_index_clear();
        free_devtree(root.children);
        root.children = nullptr;
        var_reset();
    }
}

// As when a burst marks all devices while the loop waits for one of them.
TEST_F(schedule, index_may_be_rebuilt_while_a_device_is_handed_out) {
    devtree *group = add_group(&root, "a");
    for (int i = 0; i < 15; i++)
        add_device(group, std::to_string(i).c_str(), i == 1 ? 900 : 1000);
    due_index_rebuild(root.children);
    devnode *due = due_index_next();
    mark_burst(root.children);
    due_index_rebuild(root.children);
    for (int step = 0; step < 30; step++) {
        due->next_check = 2000 - step;
        ASSERT_EQ(due_index_next(), find_next_due(root.children)) << step;
        due = due_index_next();
    }
}

TEST_F(schedule, index_without_memory_walks_the_tree) {
    devnode *device = add_device(add_group(&root, "a"), "x", 5);
    for (uint32_t n : {1U, 2U}) {
        host.fail_allocation = n;
        due_index_rebuild(root.children);
        EXPECT_EQ(due_index_next(), device);
    }
    host.fail_allocation = 0;
}
