#include "devtree/transfer.h"

#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "platform/clock.h"

#include <algorithm>
#include <gtest/gtest.h>

class transfer : public testing::Test {
protected:
    test_host host;
    devtree_guard before, after;

    void SetUp() override {
        freed_states = 0;
        before.reset(top_group("top"));
        after.reset(top_group("top"));
    }
    void TearDown() override {
        before.reset();
        after.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    void carry_over() { transfer_state(before.get(), after.get()); }
};

TEST_F(transfer, moves_the_queue_with_its_tail) {
    devnode *old = add_device(before.get(), "x");
    add_result(old, 0, 1);
    add_result(old, 0, 2);
    devnode *device = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(queue_of(old), "");
    add_result(device, 0, 3);
    EXPECT_EQ(queue_of(device), "1 2 3");
    add_result(old, 0, 4); // each goes on with a queue of its own
    EXPECT_EQ(queue_of(old), "4");
    EXPECT_EQ(queue_of(device), "1 2 3");
}

TEST_F(transfer, leaves_an_empty_queue_ready_for_use) {
    devnode *old = add_device(before.get(), "x");
    devnode *device = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(device->results_tail, &device->results);
    EXPECT_EQ(old->results_tail, &old->results);
}

TEST_F(transfer, moves_the_state_which_is_then_freed_once) {
    devnode *old = add_device(before.get(), "x");
    place_test_state(old);
    void *state = old->state;
    devnode *device = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(device->state, state);
    EXPECT_EQ(device->state_magic, TEST_MAGIC);
    EXPECT_EQ(old->state, nullptr);
    EXPECT_EQ(old->state_magic, NO_STATE_MAGIC);
    before.reset();
    EXPECT_EQ(freed_states, 0);
    after.reset();
    EXPECT_EQ(freed_states, 1);
}

TEST_F(transfer, carries_nothing_else) {
    devnode *old = add_device(before.get(), "x");
    old->next_check = 99;
    old->limits.continuous.warn_low = 7;
    old->frequency = 5;
    old->lognode = alloc_lognode();
    devnode *device = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(device->next_check, 0);
    EXPECT_EQ(device->limits.continuous.warn_low, -1);
    EXPECT_EQ(device->frequency, 60);
    EXPECT_EQ(device->lognode, nullptr);
    EXPECT_NE(old->lognode, nullptr);
}

TEST_F(transfer, goes_down_the_groups_of_equal_path) {
    devnode *old = add_device(devtree_child(devtree_child(before.get(), "a", ""), "b", ""), "x");
    add_result(old, 0, 1);
    devnode *other = add_device(devtree_child(devtree_child(after.get(), "b", ""), "a", ""), "x");
    devnode *device = add_device(devtree_child(devtree_child(after.get(), "a", ""), "b", ""), "x");
    carry_over();
    EXPECT_EQ(queue_of(other), "");
    EXPECT_EQ(queue_of(device), "1");
}

TEST_F(transfer, walks_all_top_groups) {
    add_result(add_device(sibling_of(before.get(), "second"), "x"), 0, 2);
    add_result(add_device(before.get(), "x"), 0, 1);
    devtree_guard turned(top_group("second"));
    devnode *second = add_device(turned.get(), "x");
    devnode *first = add_device(sibling_of(turned.get(), "top"), "x");
    transfer_state(before.get(), turned.get());
    EXPECT_EQ(queue_of(first), "1");
    EXPECT_EQ(queue_of(second), "2");
}

TEST_F(transfer, gives_a_renamed_group_nothing) {
    devtree *old_group = devtree_child(before.get(), "old name", "");
    devnode *old = add_device(devtree_child(old_group, "low", ""), "x");
    add_result(old, 0, 1);
    place_test_state(old);
    devnode *device = add_device(devtree_child(devtree_child(after.get(), "new name", ""), "low", ""), "x");
    carry_over();
    EXPECT_EQ(queue_of(device), "");
    EXPECT_EQ(device->state_magic, NO_STATE_MAGIC);
    before.reset();
    EXPECT_EQ(freed_states, 1);
}

TEST_F(transfer, gives_the_first_of_equal_devices_all_and_the_second_nothing) {
    devnode *old = add_device(before.get(), "x");
    add_result(old, 0, 1);
    place_test_state(old);
    devnode *old_second = add_device(before.get(), "x");
    add_result(old_second, 0, 2);
    devnode *first = add_device(after.get(), "x");
    devnode *second = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(queue_of(first), "1");
    EXPECT_EQ(first->state_magic, TEST_MAGIC);
    EXPECT_EQ(queue_of(second), "");
    EXPECT_EQ(second->state_magic, NO_STATE_MAGIC);
    EXPECT_EQ(second->results_tail, &second->results);
    EXPECT_EQ(queue_of(old_second), "2"); // nobody asks for it
}

TEST_F(transfer, looks_into_the_first_of_equal_groups) {
    add_result(add_device(sibling_of(before.get(), "top"), "x"), 0, 2);
    devnode *device = add_device(after.get(), "x");
    carry_over();
    EXPECT_EQ(queue_of(device), "");
}

TEST_F(transfer, does_nothing_without_trees) {
    transfer_state(nullptr, nullptr);
    add_device(after.get(), "x");
    transfer_state(nullptr, after.get());
    transfer_state(before.get(), nullptr);
}

// What a search through the old list finds for each new device in turn.
static std::vector<std::string> by_plain_search(const devtree *from, const devtree *to) {
    std::vector<std::string> queues;
    std::vector<const devnode *> taken;
    for (const devnode *device = to->devices; device != nullptr; device = device->next) {
        const devnode *old = from->devices;
        while (old != nullptr && !text_equal(old->id, device->id))
            old = old->next;
        bool again = std::find(taken.begin(), taken.end(), old) != taken.end();
        queues.push_back(old != nullptr && !again ? queue_of(old) : "");
        taken.push_back(old);
    }
    return queues;
}

TEST_F(transfer, matches_long_lists_as_a_plain_search_does) {
    for (uint32_t round = 0; round < 20; round++) {
        SetUp();
        tn_srand(round);
        int count = tn_rand() % 60 + 1; // on both sides of where an index starts
        for (int i = 0; i < count; i++) {
            std::string old = std::to_string(tn_rand() % count), now = std::to_string(tn_rand() % count);
            add_result(add_device(before.get(), old.c_str()), 0, i + 1);
            add_device(after.get(), now.c_str());
        }
        std::vector<std::string> expected = by_plain_search(before.get(), after.get());
        host.fail_allocation = round % 3; // an index that finds no memory changes no answer
        carry_over();
        host.fail_allocation = 0;
        std::vector<std::string> queues;
        for (const devnode *device = after->devices; device != nullptr; device = device->next)
            queues.push_back(queue_of(device));
        EXPECT_EQ(queues, expected) << round;
    }
}

TEST_F(transfer, carries_very_many_devices_and_groups) {
    for (int i = 40000; i > 0; i--) {
        std::string id = "device" + std::to_string(i);
        for (devtree *group : {before.get(), after.get()}) {
            devnode *device = alloc_devnode();
            device->id = text_copy(id.c_str());
            devtree_add_devices(group, device);
        }
        add_result(before->devices, 0, i);
    }
    carry_over();
    int i = 1;
    for (const devnode *device = after->devices; device != nullptr; device = device->next, i++)
        ASSERT_EQ(device->results != nullptr ? device->results->value : 0, i);
}

TEST_F(transfer, carries_the_first_of_very_many_groups) {
    devtree *last_before = before.get(), *last_after = after.get();
    for (int i = 0; i < 20000; i++) {
        std::string id = "group" + std::to_string(i / 2); // each twice
        last_before = sibling_of(last_before, id.c_str());
        add_result(add_device(last_before, "x"), 0, i + 1);
        last_after = sibling_of(last_after, id.c_str());
        add_device(last_after, "x");
    }
    carry_over();
    int i = 0;
    for (const devtree *group = after->next; group != nullptr; group = group->next, i++)
        ASSERT_EQ(queue_of(group->devices), i % 2 == 0 ? std::to_string(i + 1) : "") << i;
}

class pruning : public testing::Test {
protected:
    test_host host;
    devtree *tree = nullptr;

    void TearDown() override {
        free_devtree(tree);
        EXPECT_EQ(host.blocks, 0);
    }

    static void add(devtree *group, const char *id, int64_t next_check) {
        add_device(group, id, TYPE_ACTION)->next_check = next_check;
    }
};

TEST_F(pruning, removes_what_has_run_and_keeps_what_has_not) {
    tree = top_group("action");
    add(tree, "ran", 100);
    add(tree, "waits", 0);
    add(tree, "marked", 17);
    add(tree, "waits too", 0);
    prune_ran_actions(&tree);
    EXPECT_EQ(shape_of(tree), "action[waits waits too]");
}

TEST_F(pruning, looks_at_no_queue) {
    tree = top_group("action");
    add(tree, "ran", 100);
    add_result(tree->devices, 0, 1);
    prune_ran_actions(&tree);
    EXPECT_EQ(tree, nullptr);
}

TEST_F(pruning, removes_the_groups_that_it_empties) {
    tree = top_group("a");
    add(devtree_child(devtree_child(tree, "b", ""), "c", ""), "ran", 1);
    devtree *kept = devtree_child(tree, "d", "");
    add(kept, "waits", 0);
    devtree_child(kept, "empty", "");
    prune_ran_actions(&tree);
    EXPECT_EQ(shape_of(tree), "a(d[waits])");
}

TEST_F(pruning, removes_any_of_the_top_groups) {
    for (int removed = 0; removed < 3; removed++) {
        tree = top_group("0");
        sibling_of(tree, "1");
        sibling_of(tree, "2");
        std::string expected;
        int number = 0;
        for (devtree *group = tree; group != nullptr; group = group->next, number++) {
            group->name_template = "a literal";
            add(group, "x", number == removed ? 1 : 0);
            if (number != removed) expected += (expected.empty() ? "" : " ") + std::string(group->id) + "[x]";
        }
        prune_ran_actions(&tree);
        EXPECT_EQ(shape_of(tree), expected);
        free_devtree(tree);
        tree = nullptr;
    }
}

TEST_F(pruning, does_nothing_on_an_absent_tree) {
    prune_ran_actions(&tree);
    EXPECT_EQ(tree, nullptr);
}

static int tests_applied;
static bool never_done(const devnode *) {
    tests_applied++;
    return false;
}

TEST_F(pruning, does_not_apply_the_test_that_it_is_handed) {
    tree = top_group("action");
    add(tree, "ran", 1);
    tests_applied = 0;
    prune_ran_actions(&tree, never_done);
    EXPECT_EQ(tree, nullptr);
    EXPECT_EQ(tests_applied, 0);
}

TEST_F(pruning, has_a_test_for_an_action_that_has_run_and_holds_no_result) {
    tree = top_group("action");
    add(tree, "x", 0);
    devnode *device = tree->devices;
    EXPECT_FALSE(action_is_delivered(device));
    device->next_check = 1;
    EXPECT_TRUE(action_is_delivered(device));
    add_result(device, 0, 1);
    EXPECT_FALSE(action_is_delivered(device));
}
