#include "platform/clock.h"
#include "platform/version.h"
#include "sim/scenario.h"

// Beginnings, and processes that end before they have begun.

using starting = scenario;

TEST_F(starting, without_settings_ends_with_a_word_to_the_event_log) {
    sim.settings.clear();
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_TRUE(sim.logged(3, "Fatal error: Unable to read agent configuration."));
    EXPECT_EQ(sim.events, std::vector<std::string>{"Unable to read agent configuration."});
}

TEST_F(starting, without_settings_takes_them_all_from_the_command_line) {
    sim.settings.clear();
    server.checks = {{"mem", {wire::continuous("phys", 60)}}};
    sim.start_agent(
        {"-c", "by-hand", "-s", "server", "-d", "elsewhere", "-t", "/own/variables", "-m", "/own/log"});
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(server.accounts.contains("elsewhere/by-hand"));
    EXPECT_TRUE(sim.disk.has("/own/variables"));
}

TEST_F(starting, prefers_the_command_line_to_the_settings) {
    sim.start_agent({"-c", "by-hand", "-l", "0"});
    ASSERT_TRUE(checkins(1));
    EXPECT_TRUE(server.accounts.contains("example/by-hand"));
    EXPECT_TRUE(sim.logged(0, "Config: Using specified name \"by-hand\""));
}

TEST_F(starting, with_a_port_that_is_cut_to_sixteen_bits_calls_there) {
    sim.add_server(server, "high", 4464);
    sim.settings["server_list"] = "high";
    sim.start_agent({"-p", "70000"});
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.connections[0].place, "high");
}

TEST_F(starting, prints_its_version_and_ends) {
    sim.start_agent({"-V"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_TRUE(sim.console.starts_with("\n Tarnix Agent : v.3.8.0 build 5153 on "));
}

TEST_F(starting, with_an_unknown_option_prints_the_usage_and_ends) {
    sim.start_agent({"--what"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_TRUE(sim.console.starts_with("Usage:  tnagent  [-v][-V]"));
}

TEST_F(starting, with_a_bad_port_in_the_list_is_fatal) {
    sim.settings["server_list"] = "a:b";
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_TRUE(sim.logged(3, "Fatal error: Could not parse port number"));
}

TEST_F(starting, with_settings_of_the_user_keeps_the_variables_there_too) {
    sim.home = "/root";
    sim.user_settings["name"] = "mine";
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(server.accounts.contains("example/mine"));
    EXPECT_TRUE(sim.logged(1, "Found key in current user's registry - will store variables there too"));
    EXPECT_TRUE(sim.disk.has("/root/.local/state/tarnix/variables"));
    EXPECT_FALSE(sim.disk.has("/var/lib/tarnix/variables"));
}

TEST_F(starting, with_an_empty_list_of_servers_goes_on_trying) {
    sim.settings["server_list"] = " ";
    sim.start_agent();
    sim.run_for(HOUR);
    EXPECT_TRUE(sim.agent_runs());
    EXPECT_TRUE(sim.logged_part("Failed to register with server."));
}

TEST_F(starting, for_downtime_alone_asks_the_server_and_ends) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.start_agent({"--down=45", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 0);
    EXPECT_EQ(server.downtimes, std::vector<int64_t>{45});
    EXPECT_TRUE(sim.console.ends_with("OK Downtime granted\n"));
}

TEST_F(starting, for_downtime_that_is_refused_ends_with_status_one) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    server.downtime_granted = false;
    server.downtime_message = "not now";
    sim.start_agent({"--down", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_EQ(server.downtimes, std::vector<int64_t>{30});
    EXPECT_TRUE(sim.console.ends_with("FAILURE not now\n"));
}

TEST_F(starting, for_downtime_tells_why_there_is_no_server) {
    sim.network.place("server").state = place_state::REFUSES;
    sim.start_agent({"--down=abc", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_TRUE(sim.console.ends_with(
        "FAILED Could not connect to server: Error connecting: Connection refused (111)\n"));
}

TEST_F(starting, for_downtime_tells_what_the_server_did_not_say) {
    server.bends.push_back({.at = server_step::DOWNTIME_RESP, .kind = bend_kind::CLOSE_BEFORE});
    sim.start_agent({"--down", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    std::string reason = "Peer closed connection unexpectedly";
    EXPECT_TRUE(sim.console.ends_with("FAILED Could not request downtime: " + reason + "\n")) << sim.console;
    EXPECT_TRUE(sim.logged(3, "[cmd] ERROR connect_and_request_downtime: " + reason));
}

// "OK ", the whole reply then, is one character short.
TEST_F(starting, for_downtime_takes_a_grant_without_a_message_for_none) {
    server.downtime_message = "";
    sim.start_agent({"--down", "--quiet"});
    ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, MINUTE));
    EXPECT_EQ(sim.exit_status, 1);
    EXPECT_TRUE(sim.console.ends_with("Too short message from server received\n")) << sim.console;
}

TEST_F(starting, again_is_told_in_the_first_line) {
    std::string version = version_text;
    sim.restart = 1;
    begin({});
    EXPECT_TRUE(sim.logged(3, "Restarting Tarnix " + version + " Agent."));
    EXPECT_FALSE(sim.logged_part("Agent starting."));
}

TEST_F(starting, takes_chance_from_the_time) {
    for (int64_t later : {0, 1000, 2000}) {
        if (later != 0) sim.run_for(later);
        sim.network.place("server").state = place_state::REFUSES;
        int64_t begun = sim.wall_time();
        sim.start_agent();
        ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("(failures=3)"); }, HOUR));
        sim.kill_agent();
        tn_srand(static_cast<uint32_t>(begun));
        for (int32_t failures : {2, 3}) { // (failures - 1 + 2) * 30 / 10 and a chance
            std::string hold = std::to_string((failures + 1) * 3 + tn_rand() % 6);
            EXPECT_TRUE(sim.logged(2, "On hold for " + hold + " seconds...")) << later;
            EXPECT_TRUE(sim.logged(1, "Failed to register with server. Will try again in " + hold +
                                          " seconds... (failures=" + std::to_string(failures) + ")"));
        }
        sim.log.clear();
    }
}
