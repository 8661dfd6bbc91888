#include "sim/log_scenario.h"

#include <algorithm>
#include <cstdio>

// What an agent knows of its logs when it comes back. Where a log has been read up to outlives the process by
// the variables, which are at most half a minute old when they are lost; what was read and waits for its
// checkin does not.

using log_restart = log_scenario;

TEST_F(log_restart, goes_on_with_what_was_written_meanwhile) {
    follow_app();
    append(numbered_lines("line", 1, 30));
    settle();
    stop();
    append(numbered_lines("line", 31, 30));
    sim.start_agent();
    settle();
    EXPECT_EQ(entries(), numbered_entries("line", 1, 60));
    EXPECT_FALSE(sim.logged_part("Rotation of log file"));
}

TEST_F(log_restart, sees_a_rotation_that_came_meanwhile) {
    follow_app();
    append("old\n");
    settle();
    stop();
    sim.disk.rename(APP, std::string(APP) + ".1");
    sim.disk.put(APP, numbered_lines("new", 1, 30));
    sim.start_agent();
    settle();
    texts expected = numbered_entries("new", 1, 30);
    expected.insert(expected.begin(), "old");
    EXPECT_EQ(entries(), expected);
}

TEST_F(log_restart, takes_a_line_that_was_begun_before_it_whole) {
    follow_app();
    append("beg");
    sim.run_for(PERIOD);
    stop();
    append("un and ended\n");
    sim.start_agent();
    settle();
    EXPECT_EQ(entries(), texts{"begun and ended"});
}

TEST_F(log_restart, loses_what_waits_for_its_checkin_with_the_process) {
    follow_app();
    sim.network.place("server").state = place_state::REFUSES;
    append("waits\n");
    sim.run_for(2 * PERIOD);
    stop();
    sim.network.place("server").state = place_state::UP;
    append("comes\n");
    sim.start_agent();
    settle();
    EXPECT_EQ(entries(), texts{"comes"});
}

TEST_F(log_restart, of_one_that_was_killed_at_once_repeats_the_last_half_minute_at_most) {
    follow_app();
    append("long ago\n");
    settle();
    sim.run_for(MINUTE);
    append("just now\n");
    ASSERT_TRUE(sim.run_until([&] { return entries().back() == "just now"; }, MINUTE));
    sim.kill_agent();
    append("later\n");
    sim.start_agent();
    settle();
    texts all = entries();
    EXPECT_EQ(std::count(all.begin(), all.end(), "long ago"), 1);
    EXPECT_EQ(all.back(), "later");
    EXPECT_EQ(std::count(all.begin(), all.end(), "later"), 1);
    EXPECT_LE(std::count(all.begin(), all.end(), "just now"), 2);
}

// One life up to a power cut so many seconds behind the delivery of a line, and the next life. How often the
// line comes.
static int64_t lives_through_a_cut(int64_t seconds_behind, uint64_t seed) {
    scripted_server server;
    host_sim sim(seed);
    sim.add_server(server);
    sim.settings["loglevel"] = "0";
    server.checkin_frequency = 20;
    server.checks = log_tree({followed_log(log_scenario::APP, 10, {REPORT_ALL})});
    sim.disk.put(log_scenario::APP, "history\n");
    sim.start_agent();
    sim.run_for(2 * MINUTE + static_cast<int64_t>(seed));
    sim.disk.append(log_scenario::APP, "before\n");
    EXPECT_TRUE(sim.run_until([&] { return !entries_of(server, log_scenario::APP).empty(); }, 2 * MINUTE));
    sim.run_for(seconds_behind);
    sim.cut_power();
    sim.disk.append(log_scenario::APP, "behind\n");
    sim.start_agent();
    sim.run_for(2 * MINUTE);
    texts all = entries_of(server, log_scenario::APP);
    EXPECT_EQ(std::count(all.begin(), all.end(), "behind"), 1);
    EXPECT_EQ(std::count(all.begin(), all.end(), "history"), 0);
    return std::count(all.begin(), all.end(), "before");
}

TEST(log_power_cut, repeats_what_the_stored_place_is_behind_of_and_nothing_older) {
    int64_t repeated = 0;
    for (uint64_t seed = 1; seed <= 30; seed++) {
        SCOPED_TRACE(seed);
        int64_t at_once = lives_through_a_cut(0, seed);
        EXPECT_GE(at_once, 1);
        EXPECT_LE(at_once, 2);
        repeated += at_once - 1;
        EXPECT_EQ(lives_through_a_cut(MINUTE, seed), 1);
    }
    EXPECT_GT(repeated, 0); // or the cuts have come too late to show anything
    EXPECT_LT(repeated, 30);
}
