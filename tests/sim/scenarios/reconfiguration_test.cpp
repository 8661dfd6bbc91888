#include "sim/scenario.h"

// A server that changes its mind while results wait.

using reconfiguration = scenario;

TEST_F(reconfiguration, carries_waiting_results_to_the_checks_of_equal_path) {
    sim.probes.counts_looks = true;
    begin({{"mem", {wire::continuous("phys", 5)}}, {"fs", {wire::continuous("/", 5)}}});
    server.acknowledge = false; // so that all of them still wait when the change comes
    server.configure({{"mem", {wire::continuous("phys", 7)}}});
    ASSERT_TRUE(sim.run_until([&] { return server.registrations == 3; }, HOUR));
    server.acknowledge = true;
    ASSERT_TRUE(checkins(3));
    size_t waited = server.deliveries[1].results.size();
    EXPECT_EQ(waited, 24U); // twelve of each
    std::vector<int64_t> times = server.times("mem/phys");
    std::vector<int64_t> twice = every(5, SIM_START, 12);
    EXPECT_EQ(std::vector<int64_t>(times.begin(), times.begin() + 12), twice);
    EXPECT_EQ(std::vector<int64_t>(times.begin() + 12, times.begin() + 24), twice);
    EXPECT_EQ(server.times("fs//"), twice); // the ones that were not acknowledged, and went with their tree
}

TEST_F(reconfiguration, lets_every_check_of_the_new_tree_run_at_once) {
    begin({{"mem", {wire::continuous("phys", 3600)}}});
    ASSERT_TRUE(checkins(1));
    server.configure({{"mem", {wire::continuous("phys", 3600), wire::continuous("swap", 3600)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.times("mem/phys"), every(120, SIM_START, 2));
    EXPECT_EQ(server.times("mem/swap"), every(0, SIM_START + 120, 1));
}

TEST_F(reconfiguration, drops_what_waits_in_a_group_that_was_renamed) {
    begin({{"mem", {}, {{"old", {wire::continuous("phys", 20)}}}}});
    server.acknowledge = false;
    server.configure({{"mem", {}, {{"new", {wire::continuous("phys", 20)}}}}});
    ASSERT_TRUE(sim.run_until([&] { return server.registrations == 3; }, HOUR));
    server.acknowledge = true;
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.results("mem/old/phys").size(), 3U); // of the delivery that was refused
    EXPECT_EQ(server.times("mem/new/phys").front(), SIM_START + 60);
}

TEST_F(reconfiguration, takes_the_new_interval_into_force_at_once) {
    begin({{"mem", {wire::continuous("phys", 3600)}}});
    server.checkin_frequency = 200;
    server.configure(server.checks);
    ASSERT_TRUE(checkins(3));
    std::vector<int64_t> times;
    for (const delivery &one : server.deliveries)
        times.push_back(one.time - SIM_START);
    EXPECT_EQ(times, (std::vector<int64_t>{0, 60, 260, 460}));
}

TEST_F(reconfiguration, scans_again_when_the_server_asks) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    sim.probes.volumes["/new"] = {1ULL << 30, 2ULL << 30};
    server.scan_wanted = true;
    ASSERT_TRUE(checkins(1));
    sim.run_for(1);
    EXPECT_EQ(wire::device_paths(server.tree())[0], "fs//new");
    EXPECT_EQ(server.count_messages("h_w_scan_req"), 2U);
}

TEST_F(reconfiguration, goes_on_behind_a_scan_that_the_server_refuses) {
    server.scan_nack = true;
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(sim.logged(2, "HWScan. Server returned NACK"));
    EXPECT_FALSE(server.tree().empty());
}

TEST_F(reconfiguration, leaves_the_scan_notice_out_once_a_server_did_not_answer_it) {
    server.bends.push_back({.at = server_step::SCAN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(
        sim.logged(2, "Couldn't read HWScan response. Server doesn't seem to support HWScan notifications. "
                      "This feature will be disabled until the agent is restarted"));
    EXPECT_EQ(server.count_messages("h_w_scan_req"), 1U);
    EXPECT_FALSE(server.tree().empty());
}

TEST_F(reconfiguration, that_is_refused_leaves_the_old_checks_running) {
    begin({{"mem", {wire::continuous("phys", 20)}}});
    server.configure({{"mem", {wire::continuous("swap", 20)}}});
    server.bends.push_back(
        {.at = server_step::CONFIGURE_RESP, .kind = bend_kind::NACK, .bytes = "not today"});
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    EXPECT_TRUE(sim.logged(2, "Reason given: \"not today\""));
    sim.run_for(MINUTE);
    // The results of before were dropped behind their acknowledgement, and come only once.
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.times("mem/phys"), every(20, SIM_START, server.times("mem/phys").size()));
    EXPECT_FALSE(server.results("mem/swap").empty());
}

TEST_F(reconfiguration, replaces_the_servers_and_goes_to_them) {
    sim.add_server(server, "new-home");
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.servers = {{"new-home", 3241}};
    server.configure(server.checks);
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.connections.back().place, "new-home");
}

TEST_F(reconfiguration, of_the_servers_is_told_once_with_the_next_failure) {
    sim.add_server(server, "new-home");
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.servers = {{"new-home", 3241}};
    server.configure(server.checks);
    ASSERT_TRUE(checkins(2));
    sim.network.place("new-home").state = place_state::REFUSES;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures = 3)!"); }, HOUR));
    EXPECT_EQ(sim.count_logged("Changed server to: "), 1);
    EXPECT_TRUE(sim.logged(2, "Changed server to: new-home"));
}

TEST_F(reconfiguration, keeps_the_first_servers_of_a_list_that_is_too_long_to_store) {
    std::string name(100, 'x');
    server.servers.assign(12, {name, 1234}); // 106 characters each, of 1024
    server.servers[0] = {"server", 3241};
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    std::string text = sim.disk.get("/var/lib/tarnix/variables");
    size_t at = text.find("server_list_cluster\t") + 20;
    std::string stored = text.substr(at, text.find('\n', at) - at);
    EXPECT_EQ(stored.size(), 12U + 9 * 106);
    EXPECT_TRUE(stored.starts_with("server:3241," + name + ":1234,"));
    EXPECT_EQ(stored.back(), ',');
}

TEST_F(reconfiguration, goes_to_the_first_server_where_the_present_one_is_no_longer_listed) {
    sim.add_server(server, "other");
    sim.settings["server_list"] = "server,other";
    sim.network.place("server").state = place_state::REFUSES;
    server.servers = {{"other", 3241}};
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    for (const connection_record &connection : server.connections)
        EXPECT_EQ(connection.place, "other");
    EXPECT_EQ(sim.count_logged("failed checkin"), 0);
}

TEST_F(reconfiguration, says_that_the_tree_holds_no_log_checks) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(sim.logged(0, "Server sent no LogCheck group"));
}

TEST_F(reconfiguration, changes_the_identity_when_the_server_does) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_EQ(server.connections[1].wants.id, "host-1");
    server.host_id = "host-2";
    server.configure(server.checks);
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.connections.back().wants.id, "host-2");
    sim.run_for(2 * MINUTE); // a changed variable reaches the disk within half a minute of passes
    EXPECT_NE(sim.disk.get("/var/lib/tarnix/variables").find("host_id\thost-2\n"), std::string::npos);
}

TEST_F(reconfiguration, ends_the_agent_when_nothing_at_all_can_be_monitored) {
    sim.settings["disable_checks"] = "*";
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, HOUR));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_TRUE(sim.logged(3, "Fatal error: This agent is not able to monitor *anything* on this host"));
    EXPECT_EQ(sim.events,
              std::vector<std::string>{"This agent is not able to monitor *anything* on this host"});
    EXPECT_EQ(sim.events_at_end, 0U); // fatal cleans up
}
