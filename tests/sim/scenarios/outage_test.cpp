#include "sim/scenario.h"

// A server that is away, and what is kept meanwhile.

using outage = scenario;

TEST_F(outage, of_a_day_loses_and_doubles_nothing) {
    sim.settings["loglevel"] = "0";
    sim.probes.counts_looks = true;
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(DAY);
    sim.network.place("server").state = place_state::UP;
    sim.run_for(HOUR);
    EXPECT_GT(server.results("mem/phys").size(), 1440U + 55U);
    expect_each_look_once();
}

TEST_F(outage, is_met_with_holds_that_grow_to_nine_tenths_and_a_fifth_of_the_interval) {
    server.checkin_frequency = 100;
    begin({{"mem", {wire::continuous("phys", 600)}}});
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(DAY);
    EXPECT_TRUE(sim.logged(2, "Reason given: \"Error connecting: Connection refused (111)\""));
    EXPECT_TRUE(sim.logged(2, "Agent failed checkin (failures = 1)!"));
    EXPECT_TRUE(sim.logged(2, "Agent failed checkin (failures = 8)!"));
    EXPECT_FALSE(sim.logged(2, "Agent failed checkin (failures = 9)!"));
    std::vector<int64_t> tries = sim.times_logged("Agent failed checkin (failures = 8)!");
    for (size_t i = 1; i < tries.size(); i++) {
        EXPECT_GE(tries[i] - tries[i - 1], 90);
        EXPECT_LE(tries[i] - tries[i - 1], 110);
    }
}

TEST_F(outage, works_its_failures_off_one_good_checkin_each) {
    begin({{"mem", {wire::continuous("phys", 600)}}});
    sim.network.place("server").state = place_state::REFUSES;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures = 3)!"); }, DAY));
    sim.network.place("server").state = place_state::UP;
    ASSERT_TRUE(checkins(4));
    sim.run_for(1);
    EXPECT_TRUE(sim.logged(1, "Successful checkin (failures = 2)!"));
    EXPECT_TRUE(sim.logged(1, "Successful checkin (failures = 1)!"));
    EXPECT_TRUE(sim.logged(1, "Successful checkin (failures = 0)!"));
    EXPECT_TRUE(sim.logged(0, "Successful checkin (failures = 0)!"));
}

TEST_F(outage, of_three_days_keeps_what_the_retention_allows) {
    sim.settings["loglevel"] = "0";
    sim.settings["max_data_retention_days"] = "1";
    begin({{"mem", {wire::continuous("phys", 600)}}});
    ASSERT_TRUE(checkins(1));
    sim.network.place("server").state = place_state::REFUSES;
    sim.run_for(3 * DAY);
    sim.network.place("server").state = place_state::UP;
    int64_t back = sim.wall_time();
    size_t before = server.results().size();
    ASSERT_TRUE(checkins(5));
    std::vector<int64_t> times = server.times("mem/phys");
    ASSERT_GT(times.size(), before);
    EXPECT_GE(times[before], back - DAY - 600);
    EXPECT_LE(times[before], back - DAY + 600);
    EXPECT_EQ(sim.count_logged("WARNING: Max data retention time exceeded, discarding data!"), 1);
}

TEST_F(outage, of_a_server_that_swallows_everything_ends_each_try_after_ten_minutes) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    sim.network.place("server").state = place_state::SWALLOWS;
    int64_t start = now();
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, DAY));
    EXPECT_TRUE(sim.logged(2, "Reason given: \"Connection timed out\""));
    EXPECT_EQ(now() - start, 60 + 600);
}

TEST_F(outage, of_the_name_service_is_told_in_its_words) {
    sim.settings["server_list"] = "elsewhere";
    sim.start_agent();
    sim.run_for(30);
    EXPECT_TRUE(sim.logged(1, "Reason given: \"Error resolving \"elsewhere\": Unknown host\""));
}

TEST_F(outage, at_the_start_is_met_with_registrations_until_one_succeeds) {
    sim.network.place("server").state = place_state::REFUSES;
    server.checks = {{"mem", {wire::continuous("phys", 60)}}};
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures=4)"); }, HOUR));
    sim.network.place("server").state = place_state::UP;
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(sim.logged(1, "Successfully registered with server."));
}

TEST_F(outage, of_one_of_two_servers_is_bridged_by_the_other) {
    sim.add_server(server, "other");
    sim.settings["server_list"] = "server,other";
    sim.probes.counts_looks = true;
    begin({{"mem", {wire::continuous("phys", 30)}}});
    sim.network.place("server").state = place_state::REFUSES;
    ASSERT_TRUE(checkins(3));
    EXPECT_TRUE(sim.logged(2, "Changed server to: other"));
    EXPECT_EQ(server.connections.back().place, "other");
    expect_each_look_once();
}

TEST_F(outage, of_one_of_two_servers_at_the_start_costs_no_hold_once_failures_are_worked_off) {
    sim.add_server(server, "other");
    sim.settings["server_list"] = "server,other";
    begin({{"mem", {wire::continuous("phys", 30)}}});
    sim.network.place("server").state = place_state::REFUSES;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Changed server to: other"); }, DAY));
    int64_t failed = now();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(now(), failed);
    EXPECT_FALSE(sim.logged_part("On hold for"));
}

TEST_F(outage, of_one_of_two_servers_ahead_of_the_registration_is_told_as_news) {
    sim.add_server(server, "other");
    sim.settings["server_list"] = "server,other";
    sim.network.place("server").state = place_state::REFUSES;
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return server.registrations > 0; }, HOUR));
    EXPECT_TRUE(sim.logged(1, "Changed server to: other"));
    EXPECT_EQ(sim.count_logged("Changed server to: "), 1);
    EXPECT_TRUE(sim.logged_part("Will try again in"));
}

TEST_F(outage, in_the_middle_of_a_delivery_repeats_the_whole_delivery) {
    sim.probes.counts_looks = true;
    begin({{"mem", {wire::continuous("phys", 10)}}});
    server.bends.push_back({.at = server_step::TIME, .kind = bend_kind::CLOSE_AFTER});
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(sim.count_logged("Agent failed checkin"), 1);
    expect_each_look_once();
}
