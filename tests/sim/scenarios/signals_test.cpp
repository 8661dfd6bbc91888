#include "sim/scenario.h"

using signals = scenario;

TEST_F(signals, force_a_checkin_at_once) {
    server.checkin_frequency = 3600;
    begin({{"mem", {wire::continuous("phys", 600)}}});
    sim.run_for(700);
    uint32_t before = server.checkins;
    sim.signal_checkin();
    ASSERT_TRUE(sim.run_until([&] { return server.checkins > before; }, HOUR));
    EXPECT_EQ(now(), 700);
    EXPECT_EQ(server.deliveries.back().results.size(), 2U);
    EXPECT_TRUE(sim.logged(1, "Checkin forced by SIGUSR1"));
}

TEST_F(signals, lift_the_limit_of_a_forced_checkin_for_good_while_checkins_succeed) {
    server.checkin_frequency = 36000;
    begin({{"mem", {wire::continuous("phys", 1)}}});
    sim.run_for(5000);
    sim.signal_checkin();
    ASSERT_TRUE(checkins(1));
    EXPECT_GE(server.deliveries.back().results.size(), 4999U);
    EXPECT_FALSE(sim.logged_part("throttling"));
    sim.run_for(5000);
    sim.signal_checkin();
    ASSERT_TRUE(checkins(1));
    EXPECT_GE(server.deliveries.back().results.size(), 4999U);
}

TEST_F(signals, leave_a_limit_of_fifty_behind_a_forced_checkin_that_failed) {
    server.checkin_frequency = 36000;
    begin({{"mem", {wire::continuous("phys", 1)}}});
    sim.run_for(500);
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    sim.signal_checkin();
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.deliveries.back().results.size(), 50U);
}

TEST_F(signals, force_a_checkin_in_the_midst_of_a_hold) {
    begin({});
    sim.network.place("server").state = place_state::REFUSES;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures = 5)"); }, DAY));
    sim.network.place("server").state = place_state::UP;
    int64_t start = now();
    sim.signal_checkin();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(now(), start);
}

TEST_F(signals, make_a_burst_of_a_thousand_results_of_each_check_behind_the_present_wait) {
    server.checkin_frequency = 36000;
    begin({{"mem", {wire::continuous("phys", 200), wire::continuous("swap", 3600)}}});
    sim.run_for(100);
    sim.signal_burst();
    sim.run_for(150);
    EXPECT_TRUE(sim.logged(1, "Burst requested by SIGUSR2"));
    sim.signal_checkin();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.results("mem/phys").size(), 1001U);
    EXPECT_EQ(server.results("mem/swap").size(), 1001U);
    EXPECT_EQ(server.times("mem/phys").back(), SIM_START + 200);
    EXPECT_EQ(server.times("mem/swap").back(), SIM_START + 200);
}

TEST_F(signals, make_a_burst_in_the_order_of_the_tree) {
    server.checkin_frequency = 36000;
    wire::group group = {"mem", {}, {}};
    for (int i = 0; i < 8; i++) // the last is due first
        group.checks.push_back(wire::continuous(std::string(1, static_cast<char>('a' + i)), 90 - 10 * i));
    begin({group});
    sim.run_for(10);
    sim.signal_burst();
    sim.run_for(1);
    sim.log.clear();
    sim.run_for(10);
    std::string order;
    for (const sim_line &line : sim.log)
        if (line.text.starts_with("Agent will check device ")) order += line.text[24];
    EXPECT_EQ(order, "habcdefg"); // the check that the present wait was for goes ahead
}

// The check that goes ahead stands in the midst of the tree, and its next time is far away.
TEST_F(signals, make_a_burst_that_keeps_no_check_behind_the_one_that_went_ahead) {
    server.checkin_frequency = 36000;
    wire::group group = {"mem", {}, {}};
    for (int i = 0; i < 20; i++)
        group.checks.push_back(
            wire::continuous(std::string(1, static_cast<char>('a' + i)), i == 1 ? 80 : 90));
    begin({group});
    sim.run_for(10);
    sim.signal_burst();
    sim.run_for(1);
    sim.log.clear();
    sim.run_for(75);
    std::string order;
    for (const sim_line &line : sim.log)
        if (line.text.starts_with("Agent will check device ")) order += line.text[24];
    EXPECT_EQ(order, "bacdefghijklmnopqrst");
}

TEST_F(signals, make_a_burst_once_and_count_the_period_from_it) {
    begin({{"mem", {wire::continuous("phys", 50), wire::continuous("swap", 20)}}});
    sim.run_for(30);
    sim.signal_burst();
    ASSERT_TRUE(checkins(3));
    std::vector<int64_t> runs = sim.times_logged("Agent will check device phys");
    ASSERT_GE(runs.size(), 4U);
    EXPECT_EQ(std::vector<int64_t>(runs.begin(), runs.begin() + 4),
              (std::vector<int64_t>{SIM_START, SIM_START + 40, SIM_START + 90, SIM_START + 140}));
}

TEST_F(signals, stop_the_agent_in_order) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    sim.run_for(90);
    stop();
    EXPECT_EQ(now(), 90);
    EXPECT_TRUE(sim.logged_part("Agent shutting down."));
}

// A checkin waits for its answer twice, and each wait ends within a second.
TEST_F(signals, stop_the_agent_within_two_seconds_while_it_waits_for_a_silent_server) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::SILENT});
    sim.run_for(100);
    stop();
    EXPECT_LE(now(), 102);
    EXPECT_TRUE(sim.logged_part("Timeout in socket_recv()"));
}

TEST_F(signals, stop_the_agent_while_it_cannot_register) {
    sim.network.place("server").state = place_state::REFUSES;
    sim.start_agent();
    sim.run_for(1000);
    stop();
    EXPECT_EQ(now(), 1000);
}

TEST_F(signals, stop_the_agent_behind_its_first_registration_where_they_come_ahead_of_it) {
    sim.start_agent();
    sim.signal_stop();
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(server.registrations, 1U);
    EXPECT_EQ(server.checkins, 0U);
    EXPECT_TRUE(sim.logged_part("Agent shutting down."));
}

TEST_F(signals, reopen_the_log_and_leave_one_that_was_moved_away) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    sim.run_for(10);
    sim.disk.names["/var/log/tarnix/agent.log.old"] = sim.disk.names["/var/log/tarnix/agent.log"];
    sim.disk.remove("/var/log/tarnix/agent.log");
    sim.signal_reopen();
    sim.run_for(10);
    EXPECT_TRUE(sim.disk.has("/var/log/tarnix/agent.log"));
    EXPECT_FALSE(sim.disk.has("/var/log/tarnix/agent.log.1.txt"));
    EXPECT_NE(sim.disk.get("/var/log/tarnix/agent.log").find("Agent reopened logfile..."), std::string::npos);
}
