#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "protocol/lists.h"
#include "protocol/server_tree.h"

#include <gtest/gtest.h>

class action_reader : public testing::Test {
protected:
    ~action_reader() override {
        tree.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    std::string read_groups(const std::string &form) {
        memory_io stream(form);
        devtree not_cleared = {};
        devtree *read = &not_cleared;
        std::string failure = noted_failure(read_action_conf_list(stream, nullptr, &read));
        tree.reset(read);
        left = hex(stream.left());
        return failure;
    }
    // The failure of a list of actions, of which nothing is kept.
    static std::string read_actions(const std::string &form) {
        devnode not_cleared = {};
        devnode *first = &not_cleared;
        std::string failure = noted_failure(read_action_list(memory_io(form), nullptr, &first));
        EXPECT_EQ(first, nullptr);
        return failure;
    }

    test_host host;
    devtree_guard tree;
    std::string left;
};

TEST_F(action_reader, makes_a_check_of_each_action) {
    EXPECT_EQ(read_groups(wire_list(wire_action_group("g", "", wire_action("b") + wire_action("a")))),
              "(none)");
    const devnode *action = tree->devices;
    EXPECT_STREQ(action->id, "b");
    EXPECT_EQ(action->frequency, -1);
    EXPECT_EQ(action->next_check, 0);
    EXPECT_EQ(action->type, TYPE_ACTION);
    EXPECT_EQ(action->parent, tree.get());
    EXPECT_STREQ(action->next->id, "a");
    EXPECT_EQ(action->next->next, nullptr);
    EXPECT_EQ(left, "");
}

TEST_F(action_reader, reads_subgroups_in_front_of_actions) {
    std::string inner = wire_action_group("inner", "", wire_action("x"));
    EXPECT_EQ(read_groups(wire_list(wire_action_group("outer", inner, wire_action("y")) +
                                    wire_action_group("second", "", ""))),
              "(none)");
    EXPECT_STREQ(tree->id, "outer");
    EXPECT_EQ(tree->name, nullptr);
    EXPECT_STREQ(tree->devices->id, "y");
    EXPECT_STREQ(tree->children->id, "inner");
    EXPECT_EQ(tree->children->parent, tree.get());
    EXPECT_STREQ(tree->children->devices->id, "x");
    EXPECT_STREQ(tree->next->id, "second");
    EXPECT_EQ(tree->next->parent, nullptr);
}

TEST_F(action_reader, gives_nothing_for_an_empty_list) {
    EXPECT_EQ(read_groups(wire_list("")), "(none)");
    EXPECT_EQ(tree, nullptr);
}

TEST_F(action_reader, passes_over_what_a_newer_server_appends) {
    std::string action = wire_list(wire_text("a") + wire_integer(5));
    std::string group = wire_list(wire_text("g") + wire_list("") + wire_list(action) + wire_text("new"));
    EXPECT_EQ(read_groups(wire_list(group)), "(none)");
    EXPECT_STREQ(tree->devices->id, "a");
}

TEST_F(action_reader, wants_sound_lists_of_groups) {
    EXPECT_EQ(read_groups(wire_text("")), "Wrong tag in read_action_conf_list");
    EXPECT_EQ(read_groups(bytes("30 00")), "Not indefinite length in read_action_conf_list");
    EXPECT_EQ(read_groups(bytes("30 80 00 01")), "List not terminated correctly in read_action_conf_list");
    EXPECT_EQ(read_groups(bytes("30 80 00 80")), "List not terminated correctly in read_action_conf_list");
}

TEST_F(action_reader, wants_sound_lists_of_actions) {
    EXPECT_EQ(read_actions(wire_text("")), "Wrong tag in read_action_list");
    EXPECT_EQ(read_actions(bytes("30 00")), "Not indefinite length in read_action_list");
    EXPECT_EQ(read_actions(bytes("30 80 00 01")), "List not terminated correctly in read_action_list");
    EXPECT_EQ(read_actions(bytes("30 80 00 80")), "List not terminated correctly in read_action_list");
}

TEST_F(action_reader, passes_the_failures_of_its_records_on) {
    EXPECT_EQ(read_actions(wire_list(wire_null())), "Wrong tag (40) encountered in read_action_conf");
    EXPECT_EQ(read_groups(wire_list(wire_null())),
              "Wrong tag (40) encountered in read_action_conf_group_incomplete");
}

TEST_F(action_reader, keeps_nothing_of_what_fails) {
    std::string good = wire_action_group("a", wire_action_group("b", "", wire_action("y")), wire_action("x"));
    for (const std::string &bad : {wire_null(), wire_action_group("c", wire_null(), ""),
                                   wire_action_group("c", "", wire_action("z") + wire_null())}) {
        EXPECT_NE(read_groups(wire_list(good + bad)), "(none)");
        EXPECT_EQ(tree, nullptr);
    }
    for (size_t length = 0; length < wire_list(good).size(); length++)
        EXPECT_TRUE(read_groups(wire_list(good).substr(0, length)).ends_with(MEMORY_IO_EMPTY));
}

TEST_F(action_reader, needs_memory_for_a_group) {
    host.fail_allocation = 1;
    EXPECT_EQ(read_groups(wire_list(wire_action_group("a", "", ""))), "read_action_conf_group_list");
}

TEST_F(action_reader, ends_a_list_without_an_end) {
    const std::string action = wire_action("");
    std::string form = bytes("30 80");
    for (size_t i = 0; i <= 1U << 18; i++)
        form += action;
    EXPECT_EQ(read_actions(form + WIRE_END), "Out of memory in read_action_list");
}
