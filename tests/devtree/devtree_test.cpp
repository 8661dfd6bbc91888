#include "devtree/devtree.h"

#include "devtree/trees.h"
#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "platform/fatal.h"

#include <algorithm>
#include <gtest/gtest.h>

class device_tree : public testing::Test {
protected:
    test_host host;

    void SetUp() override {
        regex_host = &regex_ops_host;
        freed_states = 0;
    }
    void TearDown() override { EXPECT_EQ(host.blocks, 0); }
};

TEST_F(device_tree, allocates_clear_devices_with_an_empty_queue_and_no_state) {
    devnode_guard device(alloc_devnode());
    for (const char *text : {device->id, device->conf_id, device->name, device->comment, device->unit})
        EXPECT_EQ(text, nullptr);
    EXPECT_EQ(device->description, 0U);
    EXPECT_EQ(device->limits.hint.hint_present, 0U);
    EXPECT_EQ(device->next_check, 0);
    EXPECT_EQ(device->in_rule_walk, 0U);
    EXPECT_EQ(device->lognode, nullptr);
    EXPECT_EQ(device->next, nullptr);
    EXPECT_EQ(device->parent, nullptr);
    EXPECT_EQ(device->results, nullptr);
    EXPECT_EQ(device->results_tail, &device->results);
    EXPECT_EQ(device->state, nullptr);
    EXPECT_EQ(device->state_free, free_no_state);
    EXPECT_EQ(device->state_magic, 23U);
}

TEST_F(device_tree, allocates_clear_records) {
    logrule_guard rule(alloc_logrule());
    EXPECT_EQ(rule->clause, nullptr);
    EXPECT_EQ(rule->destination, nullptr);
    EXPECT_EQ(rule->target, nullptr);
    EXPECT_EQ(rule->next, nullptr);
    lognode_guard node(alloc_lognode());
    EXPECT_EQ(node->rules, nullptr);
    resnode_guard result(alloc_resnode());
    EXPECT_EQ(result->comment, nullptr);
    EXPECT_EQ(result->log_text, nullptr);
    EXPECT_EQ(result->status, 0U);
    EXPECT_EQ(result->next, nullptr);
    clinfo_guard line(alloc_clinfo());
    EXPECT_EQ(line->label, nullptr);
    EXPECT_EQ(line->value, nullptr);
    EXPECT_EQ(line->next, nullptr);
}

TEST_F(device_tree, ends_the_agent_when_memory_is_out) {
    auto out_of_memory = [this](void (*allocate)(), const char *text) {
        host.fail_allocation = 1;
        expect_fatal(allocate, text);
    };
    out_of_memory([] { alloc_devnode(); }, "alloc_devnode() ran out of memory!");
    out_of_memory([] { alloc_logrule(); }, "alloc_logrule() ran out of memory!");
    out_of_memory([] { alloc_lognode(); }, "alloc_lognode() ran out of memory!");
    out_of_memory([] { alloc_resnode(); }, "alloc_resnode() ran out of memory!");
    out_of_memory([] { alloc_clinfo(); }, "alloc_clinfo() ran out of memory!");
}

TEST_F(device_tree, frees_all_that_a_device_owns) {
    devnode *device = alloc_devnode();
    for (char **text : {&device->id, &device->conf_id, &device->name, &device->comment, &device->unit})
        *text = text_copy("text");
    for (int i = 0; i < 3; i++) {
        resnode *result = add_result(device, i);
        result->comment = text_copy("comment");
        result->log_text = text_copy("log");
    }
    device->lognode = alloc_lognode();
    ASSERT_EQ(tn_regcomp(&device->lognode->separator, "\n"), 0);
    logrule *rule = alloc_logrule();
    EXPECT_SUCCESS(log_clause_parse("'a' and not 'b'", &rule->clause));
    rule->destination = text_copy("elsewhere");
    lognode_add_rule(device->lognode, rule);
    lognode_add_rule(device->lognode, alloc_logrule());
    place_test_state(device);
    free_devnode(device);
    EXPECT_EQ(freed_states, 1);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(device_tree, frees_all_that_a_group_owns_and_its_siblings) {
    devtree *top = top_group("a");
    top->name = text_copy("A");
    top->name_template = "a literal";
    devtree_child(top, "b", "B");
    add_device(devtree_child(devtree_child(top, "c", "C"), "d", "D"), "x");
    add_device(sibling_of(top, "e"), "y");
    free_devtree(top);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(device_tree, frees_nothing_for_absent) {
    free_resnode(nullptr);
    free_devnode(nullptr);
    free_devnode_list(nullptr);
    free_devtree(nullptr);
    free_lognode(nullptr);
    free_logrule_list(nullptr);
    free_clinfo_list(nullptr);
}

TEST_F(device_tree, frees_a_long_list_of_siblings) {
    devtree *top = top_group("a");
    devtree *last = top;
    for (int i = 0; i < 100000; i++)
        last = last->next = top_group("b");
    free_devtree(top);
}

static std::vector<void *> released;
static const heap_ops *heap_below;
static const heap_ops noting_heap = {.allocate = [](size_t size) { return heap_below->allocate(size); },
                                     .release =
                                         [](void *block) {
                                             released.push_back(block);
                                             heap_below->release(block);
                                         }};

TEST_F(device_tree, frees_host_information_from_the_far_end_back) {
    std::vector<clinfo *> lines;
    for (int i = 0; i < 4; i++) {
        lines.push_back(alloc_clinfo());
        lines[static_cast<size_t>(i)]->label = text_copy("label");
        lines[static_cast<size_t>(i)]->value = text_copy("value");
        if (i > 0) lines[static_cast<size_t>(i) - 1]->next = lines[static_cast<size_t>(i)];
    }
    heap_below = heap_host;
    heap_host = &noting_heap;
    released.clear();
    free_clinfo_list(lines[0]);
    heap_host = heap_below;
    std::vector<void *> records;
    for (void *block : released)
        if (std::find(lines.begin(), lines.end(), block) != lines.end()) records.push_back(block);
    EXPECT_EQ(records, (std::vector<void *>{lines[3], lines[2], lines[1], lines[0]}));
}

TEST_F(device_tree, finds_a_child_by_its_exact_id) {
    devtree_guard top(top_group("top"));
    devtree *child = devtree_child(top.get(), "Child", "Name");
    EXPECT_STREQ(child->id, "Child");
    EXPECT_STREQ(child->name, "Name");
    EXPECT_EQ(child->parent, top.get());
    EXPECT_EQ(child->name_template, nullptr);
    EXPECT_EQ(child->group_flags, 0U);
    EXPECT_EQ(devtree_child(top.get(), "Child", "Another name"), child);
    EXPECT_STREQ(child->name, "Name"); // that of a group that is there stays
    EXPECT_NE(devtree_child(top.get(), "child", "Name"), child);
}

TEST_F(device_tree, finds_a_child_of_an_empty_id) {
    devtree_guard top(top_group("top"));
    devtree *named = devtree_child(top.get(), "child", "Name");
    devtree *unnamed = devtree_child(top.get(), "", "None");
    EXPECT_NE(unnamed, named);
    EXPECT_EQ(devtree_child(top.get(), "", "Another name"), unnamed);
}

TEST_F(device_tree, appends_a_new_child_as_the_last_one) {
    devtree_guard top(top_group("top"));
    for (const char *id : {"b", "a", "", "b"})
        devtree_child(top.get(), id, "name");
    EXPECT_EQ(shape_of(top.get()), "top(b a )"); // an empty id is one like another
}

TEST_F(device_tree, stays_as_it_was_when_a_child_finds_no_memory) {
    devtree_guard top(top_group("top"));
    devtree_child(top.get(), "a", "name");
    for (uint32_t n = 1; n <= 3; n++) {
        int64_t blocks = host.blocks;
        host.fail_allocation = n;
        EXPECT_EQ(devtree_child(top.get(), "b", "name"), nullptr) << n;
        EXPECT_EQ(host.blocks, blocks) << n;
        EXPECT_EQ(shape_of(top.get()), "top(a)") << n;
    }
}

TEST_F(device_tree, takes_devices_in_front_of_those_it_has) {
    devtree_guard top(top_group("top"));
    add_device(top.get(), "old");
    devnode *first = alloc_devnode();
    first->id = text_copy("1");
    first->next = alloc_devnode();
    first->next->id = text_copy("2");
    devtree_add_devices(top.get(), first);
    EXPECT_EQ(shape_of(top.get()), "top[1 2 old]");
    EXPECT_EQ(first->parent, top.get());
    EXPECT_EQ(first->next->parent, top.get());
    devtree_add_devices(top.get(), nullptr);
    EXPECT_EQ(shape_of(top.get()), "top[1 2 old]");
}

TEST_F(device_tree, runs_the_hook_of_a_device_without_a_state_too) {
    static int runs;
    runs = 0;
    devnode *device = alloc_devnode();
    device->state_free = [](devnode *) { runs++; };
    free_devnode(device);
    EXPECT_EQ(runs, 1);
}

TEST_F(device_tree, verifies_that_there_is_no_state) {
    devnode device = {};
    clear_state(&device);
    free_no_state(&device);
    device.state_magic = TEST_MAGIC;
    expect_fatal([&device] { free_no_state(&device); }, "free_no_state(): Assertion failed");
    clear_state(&device);
    EXPECT_EQ(device.state, nullptr);
    EXPECT_EQ(device.state_free, free_no_state);
    EXPECT_EQ(device.state_magic, 23U);
}

TEST_F(device_tree, queues_results_at_the_tail) {
    devnode_guard device(alloc_devnode());
    for (int i = 1; i <= 3; i++) {
        resnode *result = add_result(device.get(), 0, i);
        EXPECT_EQ(device->results_tail, &result->next);
    }
    EXPECT_EQ(queue_of(device.get()), "1 2 3");
}

TEST_F(device_tree, appends_rules_in_their_order) {
    lognode_guard node(alloc_lognode());
    for (uint32_t i = 1; i <= 3; i++) {
        logrule *rule = alloc_logrule();
        rule->decision = i;
        lognode_add_rule(node.get(), rule);
    }
    EXPECT_EQ(node->rules->decision, 1U);
    EXPECT_EQ(node->rules->next->decision, 2U);
    EXPECT_EQ(node->rules->next->next->decision, 3U);
}

TEST_F(device_tree, ends_the_agent_where_a_rule_has_no_log) {
    logrule_guard rule(alloc_logrule());
    expect_fatal([&rule] { lognode_add_rule(nullptr, rule.get()); }, "Cannot add logrule to NULL lognode");
}

TEST_F(device_tree, numbers_the_groups_above_a_device_from_the_top) {
    devtree_guard top(top_group("top"));
    devtree *middle = devtree_child(top.get(), "middle", "");
    devtree *low = devtree_child(middle, "low", "");
    devnode *device = add_device(low, "x");
    EXPECT_EQ(group_at_depth(device, 1), top.get());
    EXPECT_EQ(group_at_depth(device, 2), middle);
    EXPECT_EQ(group_at_depth(device, 3), low);
    EXPECT_EQ(group_at_depth(device, 4), nullptr);
    EXPECT_EQ(group_at_depth(device, 0), nullptr);
    EXPECT_EQ(group_at_depth(add_device(top.get(), "y"), 1), top.get());
}

TEST_F(device_tree, has_no_group_above_a_lone_device) {
    devnode_guard device(alloc_devnode());
    EXPECT_EQ(group_at_depth(device.get(), 1), nullptr);
}

TEST_F(device_tree, stores_the_path_of_a_group_as_far_as_there_is_room) {
    devtree_guard top(top_group("top"));
    devtree *middle = devtree_child(top.get(), "middle", "");
    devtree *low = devtree_child(middle, "low", "");
    devtree *path[4] = {};
    EXPECT_EQ(group_path(low, path, 4), 3U);
    EXPECT_EQ(path[0], top.get());
    EXPECT_EQ(path[1], middle);
    EXPECT_EQ(path[2], low);
    EXPECT_EQ(path[3], nullptr);
    devtree *part[2] = {};
    EXPECT_EQ(group_path(low, part, 1), 3U);
    EXPECT_EQ(part[0], top.get());
    EXPECT_EQ(part[1], nullptr);
    EXPECT_EQ(group_path(low, nullptr, 0), 3U);
    EXPECT_EQ(group_path(nullptr, path, 4), 0U);
}

TEST_F(device_tree, counts_its_checks) {
    EXPECT_EQ(devtree_count_checks(nullptr), 0U);
    devtree_guard top(top_group("top"));
    EXPECT_EQ(devtree_count_checks(top.get()), 0U);
    add_device(top.get(), "1");
    add_device(top.get(), "2");
    add_device(devtree_child(devtree_child(top.get(), "a", ""), "b", ""), "3");
    add_device(sibling_of(top.get(), "other"), "4");
    EXPECT_EQ(devtree_count_checks(top.get()), 4U);
}

TEST(is_bitmap_type, answers_from_its_table) {
    std::string answers;
    for (uint32_t type = 0; type < 16; type++)
        answers += is_bitmap_type(type) ? '1' : '0';
    EXPECT_EQ(answers, "0111010000111100");
    EXPECT_FALSE(is_bitmap_type(UINT32_MAX));
}
