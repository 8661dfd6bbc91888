#include "core/run_loop.h"
#include "sim/scenario.h"

// When what is done.

using schedule = scenario;

static std::vector<int64_t> delivery_times(const scripted_server &server) {
    std::vector<int64_t> times;
    for (const delivery &one : server.deliveries)
        times.push_back(one.time - SIM_START);
    return times;
}

TEST_F(schedule, works_the_first_failure_count_off_with_the_registration) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(sim.logged(1, "Successfully registered with server."));
    EXPECT_TRUE(sim.logged(0, "Successful checkin (failures = 0)!"));
}

TEST_F(schedule, begins_with_a_checkin_that_delivers_nothing) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(server.deliveries[0].results.empty());
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent will check"); }, HOUR));
    EXPECT_EQ(delivery_times(server), std::vector<int64_t>{0});
}

TEST_F(schedule, lets_checks_go_first_only_while_the_first_checkin_is_on_hold) {
    server.checks = {{"mem", {wire::continuous("phys", 60)}}};
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    server.bends.push_back(
        {.at = server_step::OFFERS, .kind = bend_kind::CLOSE_BEFORE, .times = 1, .skip = 2});
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return server.acknowledged == 2; }, HOUR));
    std::vector<int64_t> checks = sim.times_logged("Agent will check device phys");
    std::vector<int64_t> failures = sim.times_logged("Agent failed checkin");
    ASSERT_EQ(failures.size(), 2U);
    // The checkin at the start failed, the check ran at once, and the period counts from it.
    EXPECT_EQ(checks[0], failures[0]);
    EXPECT_GE(failures[1], failures[0] + 60);
}

TEST_F(schedule, counts_the_first_period_from_the_end_of_the_first_check) {
    sim.probes.delay_s = 7;
    server.checks = {{"fs", {wire::continuous("/", 600)}}};
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    int64_t check = sim.times_logged("Agent will check device /").at(0);
    EXPECT_EQ(server.deliveries.back().time, check + 7 + 60);
}

TEST_F(schedule, lets_a_checkin_go_ahead_of_checks_of_the_same_moment) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(3));
    for (size_t i = 1; i < server.deliveries.size(); i++) {
        ASSERT_EQ(server.deliveries[i].results.size(), 1U);
        EXPECT_EQ(server.deliveries[i].results[0].time, server.deliveries[i].time - 60);
    }
}

TEST_F(schedule, of_an_empty_tree_is_checkins_alone) {
    begin({});
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(delivery_times(server), (std::vector<int64_t>{0, 60, 120, 180}));
    EXPECT_TRUE(sim.logged(1, "Instructed by server to perform 0 checks"));
    EXPECT_FALSE(sim.logged_part("Agent will check"));
}

TEST_F(schedule, raises_an_interval_of_one_second_to_ten) {
    server.checkin_frequency = 1;
    begin({});
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(delivery_times(server), (std::vector<int64_t>{0, 10, 20, 30}));
}

TEST_F(schedule, holds_with_an_interval_of_one_second_as_with_ten) {
    server.checkin_frequency = 1;
    begin({});
    sim.network.place("server").state = place_state::REFUSES;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures = 1)"); }, HOUR));
    // (1 - 1 + 2) * 10 / 10 and up to 1 more
    EXPECT_TRUE(sim.logged(2, "On hold for 2 seconds...") || sim.logged(2, "On hold for 3 seconds..."));
}

TEST_F(schedule, reads_an_interval_of_minus_one_as_a_minute) {
    server.checkin_frequency = -1;
    begin({});
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(delivery_times(server), (std::vector<int64_t>{0, 60, 120, 180}));
}

TEST_F(schedule, tells_when_a_slow_check_delays_the_checkin) {
    begin({{"fs", {wire::continuous("/", 55)}}});
    sim.probes.delay_s = 10;
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(sim.logged(2, "Agent is late for check-in due to slow check \"/\" type 0"));
    EXPECT_EQ(delivery_times(server)[1], 65);
}

TEST_F(schedule, says_nothing_of_a_check_that_ends_four_seconds_behind_the_checkin) {
    begin({{"fs", {wire::continuous("/", 55)}}});
    sim.probes.delay_s = 9;
    ASSERT_TRUE(checkins(1));
    EXPECT_FALSE(sim.logged_part("Agent is late"));
    EXPECT_EQ(delivery_times(server)[1], 64);
}

TEST_F(schedule, keeps_the_period_of_a_slow_check) {
    sim.probes.delay_s = 7;
    begin({{"fs", {wire::continuous("/", 20)}}});
    ASSERT_TRUE(checkins(3));
    std::vector<int64_t> starts = sim.times_logged("Agent will check device /");
    EXPECT_EQ(starts, every(20, starts[0], starts.size()));
}

TEST_F(schedule, runs_a_check_that_is_slower_than_its_period_again_and_again) {
    sim.probes.delay_s = 30;
    begin({{"fs", {wire::continuous("/", 20)}}});
    ASSERT_TRUE(checkins(2));
    std::vector<int64_t> starts = sim.times_logged("Agent will check device /");
    ASSERT_GE(starts.size(), 2U);
    EXPECT_EQ(starts[1] - starts[0], 30);
}

TEST_F(schedule, delays_the_other_checks_behind_a_slow_one) {
    sim.probes.delay_s = 15;
    begin({{"fs", {wire::continuous("/", 600)}}, {"mem", {wire::continuous("phys", 600)}}});
    ASSERT_TRUE(checkins(1));
    std::vector<int64_t> disk = sim.times_logged("Agent will check device /");
    std::vector<int64_t> memory = sim.times_logged("Agent will check device phys");
    EXPECT_EQ(memory[0] - disk[0], 15);
}

TEST_F(schedule, raises_the_hold_up_to_seven_failures_more_than_servers) {
    server.checkin_frequency = 10;
    begin({});
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(HOUR);
    EXPECT_TRUE(sim.logged_part("(failures = 8)!"));
    EXPECT_FALSE(sim.logged_part("(failures = 9)!"));
    EXPECT_FALSE(sim.logged_part("On hold for 11 seconds"));
}

TEST_F(schedule, forces_a_frequency_of_zero_to_one_second) {
    begin({{"mem", {wire::continuous("phys", 0)}}});
    EXPECT_TRUE(sim.logged(2, "Error: Frequency for check set to 0. Forcing to 1."));
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.times("mem/phys"), every(1, SIM_START, 60));
}

TEST_F(schedule, tells_a_slow_checkin_at_level_one) {
    begin({});
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::DELAY, .amount = 30});
    ASSERT_TRUE(checkins(2));
    sim.run_for(1);
    EXPECT_TRUE(sim.logged(1, "Checkin success, conn: 0s, setup: 0s, data: 0s, ack: 30s, finish: 0s"));
    EXPECT_TRUE(sim.logged(0, "Checkin success, conn: 0s, setup: 0s, data: 0s, ack: 0s, finish: 0s"));
}

TEST_F(schedule, runs_actions_behind_a_checkin_that_was_not_acknowledged_too) {
    begin({});
    server.actions = {{"nowhere", {"once"}}};
    server.acknowledge = false;
    uint32_t before = server.checkins; // the next one follows at once
    ASSERT_TRUE(sim.run_until([&] { return server.checkins > before + 1; }, HOUR));
    server.acknowledge = true;
    EXPECT_GT(sim.count_logged("Unknown device in check_device(): nowhere.once"), 0);
}

TEST_F(schedule, tells_the_silence_of_a_log_at_its_limit) {
    wire::check log = wire::advanced_log("app", 40, {});
    log.warning_silence = 90;
    log.alert_silence = 150;
    begin({{"log", {log}}});
    ASSERT_TRUE(checkins(4));
    std::vector<wire::result> told;
    for (const wire::result &result : server.results("log/app"))
        if (result.text.starts_with("Log silent for")) told.push_back(result);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].status, 1U);
    EXPECT_EQ(told[0].time, SIM_START + 90);
    EXPECT_EQ(told[0].text, "Log silent for 0 hours and 1 minutes");
    EXPECT_EQ(told[1].status, 2U);
    EXPECT_EQ(told[1].time, SIM_START + 150);
}

TEST_F(schedule, tells_a_failed_flush_at_each_pass) {
    begin({{"mem", {wire::continuous("phys", 10)}}});
    sim.disk.broken["rename"]["/var/lib/tarnix/variables"] = 13;
    server.host_id = "host-2";
    server.configure(server.checks);
    ASSERT_TRUE(checkins(3));
    EXPECT_GT(sim.count_logged("Flush error: "), 5);
    EXPECT_TRUE(sim.logged(3, "Flush error: Couldn't create registryvalue in key variables"));
    sim.disk.broken.clear();
    sim.run_for(MINUTE);
    EXPECT_NE(sim.disk.get("/var/lib/tarnix/variables").find("host_id\thost-2\n"), std::string::npos);
}

TEST_F(schedule, holds_from_the_end_of_the_checkin_that_failed) {
    begin({});
    sim.network.place("server").state = place_state::SWALLOWS;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    ASSERT_EQ(now(), 60 + 600);
    sim.network.place("server").state = place_state::UP;
    ASSERT_TRUE(checkins(1));
    EXPECT_GE(now(), 660 + 12); // (1 - 1 + 2) * 60 / 10
}

TEST_F(schedule, ends_for_an_upgrade_that_lies_ready) {
    begin({{"mem", {wire::continuous("phys", 600)}}});
    sim.run_for(30);
    upgrade_pending = 1;
    sim.signal_checkin(); // as a finished download, it ends the sleep
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_TRUE(sim.logged(1, "Attempting automatic upgrade"));
    EXPECT_FALSE(sim.logged_part("shutting down"));
}

TEST_F(schedule, ends_without_the_upgrade_where_a_stop_is_wanted_too) {
    begin({});
    sim.run_for(30);
    upgrade_pending = 1;
    stop();
    EXPECT_TRUE(sim.logged_part("Agent shutting down."));
    EXPECT_FALSE(sim.logged_part("Attempting automatic upgrade"));
}
