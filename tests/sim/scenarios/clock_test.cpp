#include "sim/scenario.h"

// A clock that is set while the agent runs.

using clock_changes = scenario;

TEST_F(clock_changes, back_by_an_hour_stop_checks_and_checkins_for_that_hour_alone) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    sim.run_for(30);
    sim.set_clock(-HOUR);
    int64_t start = sim.scheduler.now_ms;
    ASSERT_TRUE(checkins(1));
    EXPECT_LE(sim.scheduler.now_ms - start, (HOUR + 60) * 1000);
    uint32_t before = server.checkins;
    sim.run_for(10 * MINUTE + 1);
    EXPECT_EQ(server.checkins, before + 10);
}

TEST_F(clock_changes, back_by_an_hour_are_bridged_by_a_forced_checkin) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    sim.run_for(30);
    sim.set_clock(-HOUR);
    sim.run_for(5 * MINUTE);
    EXPECT_EQ(server.acknowledged, 3U);
    sim.signal_checkin();
    ASSERT_TRUE(checkins(1, 2));
    // The period counts from the time of this checkin.
    ASSERT_TRUE(checkins(1, 61));
}

TEST_F(clock_changes, forward_by_a_day_run_each_check_once) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    sim.run_for(30);
    int before = sim.count_logged("Agent will check device phys");
    sim.set_clock(DAY);
    sim.run_for(40);
    EXPECT_EQ(sim.count_logged("Agent will check device phys"), before + 1);
    EXPECT_EQ(sim.count_logged("failed"), 0);
}

// There the server's time no longer fits its message, so that no checkin comes to its end.
TEST_F(clock_changes, to_a_time_beyond_2038_leave_an_empty_tree_to_checkins_alone) {
    sim.set_clock(INT64_C(0x80000000) - SIM_START);
    sim.start_agent();
    sim.run_for(10 * MINUTE);
    EXPECT_FALSE(sim.exit_status.has_value());
    EXPECT_TRUE(sim.logged_part("Agent failed checkin"));
    EXPECT_FALSE(sim.logged_part("Agent will check"));
}

TEST_F(clock_changes, reach_the_server_as_a_new_offset) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.clock = [this] { return SIM_START + sim.scheduler.now_ms / 1000; }; // a clock of its own
    ASSERT_TRUE(checkins(1));
    sim.set_clock(DAY);
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(sim.logged(0, "Time offset is 86400"));
    EXPECT_LE(server.times("mem/phys").back(), server.now());
}

TEST_F(clock_changes, forward_by_ten_days_drop_results_by_their_age) {
    begin({{"mem", {wire::continuous("phys", 600)}}});
    ASSERT_TRUE(checkins(1));
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(HOUR);
    sim.set_clock(10 * DAY);
    sim.run_for(MINUTE);
    sim.network.place("server").state = place_state::UP;
    size_t before = server.results().size();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.results().size(), before + 1); // of seven
}
