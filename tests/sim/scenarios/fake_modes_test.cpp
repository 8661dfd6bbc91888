#include "sim/scenario.h"

// The agent that stands in for a host it is not on.

using fake_modes = scenario;

static std::vector<wire::group> fake_checks(int count) {
    wire::group group = {"mem", {}, {}};
    for (int i = 1; i <= count; i++)
        group.checks.push_back(wire::continuous("fakephys" + std::to_string(i), 60));
    return {group};
}

TEST_F(fake_modes, run_a_regression_to_its_end) {
    sim.settings["max_data_retention_days"] = "0"; // the results are of 1970
    server.checks = fake_checks(3);
    server.checkin_frequency = 600;
    sim.start_agent({"--regression-test", "3", "1000000", "1003600", "10"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, DAY));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_EQ(wire::device_paths(server.tree()).size(), 3U);
    EXPECT_GT(server.deliveries[1].results.size(), 30U); // each of ten checks of each has given ten
    for (const char *path : {"mem/fakephys1", "mem/fakephys2", "mem/fakephys3"})
        EXPECT_EQ(server.times(path), every(60, 1000000, 60)) << path;
    ASSERT_EQ(server.results("mem/fakephys1").size(), 60U);
    EXPECT_EQ(server.results("mem/fakephys1")[0].value, 20000);
    EXPECT_EQ(server.results("mem/fakephys1")[30].value, 0);
    EXPECT_TRUE(sim.logged(0, "All fake checks are done. Exiting."));
    EXPECT_EQ(sim.events_at_end, 0U);
}

TEST_F(fake_modes, end_a_regression_without_devices_behind_two_checkins) {
    sim.start_agent({"--regression-test", "0"});
    server.scan_first = false;
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, DAY));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_EQ(server.acknowledged, 2U);
}

TEST_F(fake_modes, hold_for_two_seconds_in_the_registration_of_a_regression) {
    sim.network.place("server").state = place_state::REFUSES;
    sim.start_agent({"--regression-test", "1"});
    sim.run_for(60);
    std::vector<int64_t> tries = sim.times_logged("Will try again in 2 seconds...");
    EXPECT_EQ(tries, every(2, SIM_START, tries.size()));
}

TEST_F(fake_modes, hold_for_nothing_in_the_cycle_of_a_regression) {
    server.checks = fake_checks(1);
    sim.start_agent({"--regression-test", "1", "0", "-1", "1"});
    ASSERT_TRUE(checkins(2));
    server.bends.push_back({.at = server_step::OFFERS, .kind = bend_kind::CLOSE_BEFORE, .times = 5});
    ASSERT_TRUE(checkins(1));
    std::vector<int64_t> failures = sim.times_logged("Agent failed checkin");
    EXPECT_EQ(failures, every(0, failures[0], 5));
    EXPECT_FALSE(sim.logged_part("On hold"));
}

TEST_F(fake_modes, answer_a_day_of_any_checks_with_plausible_constants) {
    sim.settings["loglevel"] = "2";
    server.checks = {{"mem", {wire::continuous("phys", 60)}},
                     {"weather", {wire::real("wind", 60), wire::bitmap("rain", 60, {0, 1, 2})}}};
    sim.start_agent({"--fake-results"});
    sim.run_for(DAY);
    EXPECT_GE(server.results("mem/phys").size(), 1435U);
    EXPECT_TRUE(server.tree().empty());
    for (const wire::result &result : server.results("mem/phys"))
        EXPECT_EQ(result.value, 117);
    for (const wire::result &result : server.results("weather/wind"))
        EXPECT_EQ(result.real, 117.0);
    for (const wire::result &result : server.results("weather/rain"))
        EXPECT_EQ(result.value, 1);
    EXPECT_EQ(server.deliveries[5].results.back().comment, "Fake result");
}

TEST_F(fake_modes, store_at_the_end_of_a_regression_what_changed_last) {
    server.checkin_frequency = 10;
    begin({});
    stop();
    server.host_id = "host-2"; // a changed variable, which is not due for half a minute
    sim.start_agent({"--regression-test", "0"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, 29));
    EXPECT_NE(sim.disk.get("/var/lib/tarnix/variables").find("host_id\thost-2\n"), std::string::npos);
}
