#include "sim/scenario.h"

using quiet_life = scenario;

TEST_F(quiet_life, begins_with_a_registration_and_a_checkin_that_shows_the_devices) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_TRUE(sim.logged(1, "Successfully registered with server."));
    EXPECT_TRUE(server.deliveries[0].results.empty());
    ASSERT_EQ(server.requests.size(), 2U);
    EXPECT_TRUE(server.requests[0].tree.empty());
    EXPECT_TRUE(server.requests[0].descriptions.empty());
    std::vector<std::string> paths = wire::device_paths(server.tree());
    ASSERT_GE(paths.size(), 17U);
    EXPECT_EQ(std::vector<std::string>(paths.begin(), paths.begin() + 15),
              (std::vector<std::string>{
                  "fs//home", "fs//", "mem/virt", "mem/swap", "mem/phys", "system/uptime", "system/cswitch",
                  "system/idle", "proc/mail server", "proc/worker", "proc/worker", "proc/init",
                  "ifthrough/eth0/Bytes Sent/sec", "ifthrough/eth0/Bytes Received/sec",
                  "ifthrough/eth0/Bytes Total/sec"}));
    for (const char *path : {"ifevents/eth0/Packets/sec", "scm/print", "scm/mail", "perf/System/Processes",
                             "perf/Process/init/Thread Count", "block/physical/2048/split_io"})
        EXPECT_NE(std::find(paths.begin(), paths.end(), path), paths.end()) << path;
    EXPECT_EQ(server.requests[1].descriptions.size(), 30U);
}

TEST_F(quiet_life, tells_the_host_in_each_configuration) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    const std::vector<wire::host_line> &lines = server.requests[0].host;
    EXPECT_NE(std::find(lines.begin(), lines.end(), wire::host_line{"Hostname", "simhost"}), lines.end());
    EXPECT_EQ(server.requests[1].host, lines);
}

TEST_F(quiet_life, runs_three_checks_at_their_exact_times_for_a_week) {
    sim.settings["loglevel"] = "2";
    server.checkin_frequency = 300;
    begin({{"mem", {wire::continuous("phys", 60), wire::continuous("swap", 420)}},
           {"system", {wire::continuous("uptime", 3600)}}});
    sim.run_for(7 * DAY + 5 * MINUTE + 1);
    EXPECT_EQ(server.times("mem/phys"), every(60, SIM_START, 7 * 1440 + 5));
    EXPECT_EQ(server.times("mem/swap"), every(420, SIM_START, 7 * DAY / 420 + 1));
    EXPECT_EQ(server.times("system/uptime"), every(HOUR, SIM_START, 7 * 24 + 1));
}

TEST_F(quiet_life, checks_in_at_the_period_that_the_server_orders) {
    server.checkin_frequency = 300;
    begin({{"mem", {wire::continuous("phys", 3600)}}});
    ASSERT_TRUE(checkins(20));
    std::vector<int64_t> times;
    for (const delivery &one : server.deliveries)
        times.push_back(one.time);
    EXPECT_EQ(times, every(300, SIM_START, 21));
}

TEST_F(quiet_life, keeps_one_connection_for_each_exchange_and_closes_it) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(5));
    sim.run_for(1);
    ASSERT_EQ(server.connections.size(), 7U);
    for (const connection_record &connection : server.connections)
        EXPECT_EQ(connection.ending, "closed by the agent: the agent has closed");
}

TEST_F(quiet_life, measures_each_kind_of_check) {
    begin({{"mem", {wire::continuous("phys", 60), wire::real("swap", 60)}},
           {"system", {wire::bitmap("idle", 60, {0, 1, 2})}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.results("mem/phys")[0].value, 2 << 20);
    EXPECT_EQ(server.results("mem/swap")[0].real, 8 << 20);
    EXPECT_EQ(server.results("system/idle")[1].value, 7500);
}
