#include "server/connection_table.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

// A table of three places, two for an agent, that notes whom it cuts.
struct small_table {
    std::vector<int> cuts;
    connection_table table{3, 2, [this](int socket) { cuts.push_back(socket); }};
};

} // namespace

TEST(connection_table, has_a_bounded_number_of_places_for_agents) {
    small_table t;
    for (int i = 1; i <= 3; i++)
        EXPECT_TRUE(t.table.name_agent(t.table.add(i), i));
    EXPECT_EQ(t.table.add(4), 0U);
    EXPECT_TRUE(t.cuts.empty());
}

TEST(connection_table, frees_a_place_that_is_left) {
    small_table t;
    uint64_t first = 0;
    for (int i = 1; i <= 3; i++) {
        first = t.table.add(i);
        EXPECT_TRUE(t.table.name_agent(first, i));
    }
    t.table.remove(first);
    EXPECT_NE(t.table.add(4), 0U);
}

TEST(connection_table, cuts_the_stranger_that_is_longest_there) {
    small_table t;
    EXPECT_TRUE(t.table.name_agent(t.table.add(1), 7));
    t.table.add(2);
    t.table.add(3);
    EXPECT_NE(t.table.add(4), 0U);
    EXPECT_EQ(t.cuts, std::vector<int>{2});
    EXPECT_NE(t.table.add(5), 0U);
    EXPECT_EQ(t.cuts, (std::vector<int>{2, 3}));
}

TEST(connection_table, bounds_those_that_are_cut_and_not_gone_yet) {
    small_table t;
    uint64_t last = 1;
    int added = 0;
    while (last != 0 && added < 100) {
        last = t.table.add(added);
        added += last != 0;
    }
    EXPECT_EQ(added, 6);
    EXPECT_EQ(t.table.size(), 6U);
}

TEST(connection_table, gives_an_agent_its_share_alone) {
    small_table t;
    EXPECT_TRUE(t.table.name_agent(t.table.add(1), 7));
    EXPECT_TRUE(t.table.name_agent(t.table.add(2), 7));
    EXPECT_FALSE(t.table.name_agent(t.table.add(3), 7));
}

TEST(connection_table, cuts_all_at_the_end) {
    small_table t;
    EXPECT_TRUE(t.table.name_agent(t.table.add(1), 7));
    t.table.add(2);
    t.table.cut_all();
    EXPECT_EQ(t.cuts, (std::vector<int>{1, 2}));
}
