#include "sim/scenario.h"

// What outlives a process.

using restart = scenario;

static constexpr const char *VARIABLES = "/var/lib/tarnix/variables";

TEST_F(restart, meets_the_server_again_with_the_stored_hallmark) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    agent_account before = server.accounts["example/agent-1"];
    stop();
    size_t connections = server.connections.size();
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    const connection_record &first = server.connections[connections];
    EXPECT_TRUE(first.wants.has_master_key);
    EXPECT_TRUE(first.wants.has_hallmark);
    EXPECT_EQ(first.wants.id, "host-1");
    EXPECT_EQ(server.accounts["example/agent-1"].hallmark, before.hallmark);
    EXPECT_EQ(server.count_messages("diffie_hellmann_parameters"), 1U);
    EXPECT_EQ(server.count_messages("nonce"), 1U);
}

TEST_F(restart, gets_its_checks_with_the_registration_and_does_not_scan_again) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.start_agent();
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.count_messages("h_w_scan_req"), 1U);
    EXPECT_GT(server.results("mem/phys").size(), 1U);
}

TEST_F(restart, by_a_kill_finds_what_was_flushed) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    sim.kill_agent();
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.count_messages("nonce"), 1U);
}

TEST_F(restart, makes_a_new_hallmark_where_the_server_has_lost_it) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.accounts["example/agent-1"].hallmark = "";
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.count_messages("nonce"), 2U);
    EXPECT_EQ(server.count_messages("diffie_hellmann_parameters"), 1U);
    EXPECT_EQ(sim.count_logged("Agent failed checkin"), 0);
}

TEST_F(restart, renegotiates_a_hallmark_that_is_out_of_step) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.accounts["example/agent-1"].hallmark = std::string(32, 'a');
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(sim.count_logged("probably hallmark is out of sync"), 1);
    EXPECT_EQ(server.count_messages("nonce"), 2U);
    server.violations.clear(); // what came in the wrong key
}

TEST_F(restart, tells_a_key_that_does_not_fit_behind_three_vain_tries) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.bends.push_back(
        {.at = server_step::CHALLENGE, .kind = bend_kind::NOISE, .amount = 32, .times = 4});
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("probably agent/server key mismatch"); }, HOUR));
    EXPECT_EQ(sim.count_logged("probably hallmark is out of sync"), 3);
    ASSERT_TRUE(checkins(1));
}

TEST_F(restart, needs_the_operator_where_the_server_forgot_the_key) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.release_keys();
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    EXPECT_TRUE(
        sim.logged_part("The Tarnix Server does not have a master key for the \"agent-1\" node in the "
                        "\"example\" domain - release the key on the agent!"));
    stop();
    sim.disk.remove(VARIABLES);
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.count_messages("diffie_hellmann_parameters"), 2U);
}

TEST_F(restart, needs_the_operator_where_the_agent_lost_the_key) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.disk.remove(VARIABLES);
    sim.start_agent();
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Failed to register"); }, HOUR));
    EXPECT_TRUE(sim.logged(1, "Reason given: \"No master key while doing hallmark negotiation!\""));
    server.release_keys();
    ASSERT_TRUE(checkins(1));
}

TEST_F(restart, forgets_its_identity_with_its_name) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.settings["name"] = "agent-2";
    sim.disk.remove(VARIABLES + std::string(".none"));
    server.accounts["example/agent-2"] = server.accounts["example/agent-1"];
    size_t connections = server.connections.size();
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.connections[connections].wants.name, "agent-2");
    EXPECT_EQ(server.connections[connections].wants.id, "");
}

TEST_F(restart, goes_to_the_servers_that_the_server_has_named) {
    sim.add_server(server, "second-home");
    server.servers = {{"second-home", 3241}};
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    size_t connections = server.connections.size();
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.connections[connections].place, "second-home");
}

TEST_F(restart, goes_back_to_the_setting_once_it_has_changed) {
    sim.add_server(server, "second-home");
    server.servers = {{"second-home", 3241}};
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.settings["server_list"] = "server:3241";
    size_t connections = server.connections.size();
    sim.start_agent();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.connections[connections].place, "server");
}

TEST_F(restart, takes_the_address_for_a_name_that_nobody_has_set) {
    sim.settings.erase("name");
    begin({{"mem", {wire::continuous("phys", 60)}}});
    EXPECT_TRUE(sim.logged(0, "Using local ip address: 10.0.0.7"));
    EXPECT_EQ(server.connections[0].wants.name, "10.0.0.7");
    EXPECT_TRUE(sim.logged(1, "Tarnix agent name: example: (autodetect)"));
}

TEST_F(restart, in_order_finds_what_changed_last) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.host_id = "host-2";
    server.configure(server.checks);
    ASSERT_TRUE(checkins(1));
    sim.run_for(1); // a changed variable is not due for half a minute
    EXPECT_EQ(sim.disk.get("/var/lib/tarnix/variables").find("host-2"), std::string::npos);
    stop();
    EXPECT_NE(sim.disk.get("/var/lib/tarnix/variables").find("host_id\thost-2\n"), std::string::npos);
}

TEST_F(restart, without_a_scan_knows_what_is_disabled) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    stop();
    sim.settings["disable_checks"] = "mem";
    sim.start_agent();
    size_t before = server.results("mem/phys").size();
    ASSERT_TRUE(checkins(3));
    ASSERT_GT(server.results("mem/phys").size(), before);
    EXPECT_EQ(server.results("mem/phys").back().comment, "Disabled by configuration");
}
