#include "sim/scenario.h"

// Servers that misbehave in the opening, and an agent that finds back to them.

using opening = scenario;

// Everything that a server sends on the way to a first acknowledged checkin, in order.
static constexpr server_step STEPS[] = {
    server_step::OFFERS, server_step::DH_PARAMETERS, server_step::DH_PUBLIC, server_step::KEY_ACK,
    server_step::NONCE,  server_step::CHALLENGE,     server_step::RESPONSE,  server_step::CONFIGURE_RESP,
    server_step::TIME,   server_step::CHECKIN_RESP,  server_step::SCAN_RESP,
};

TEST_F(opening, takes_fillers_ahead_of_any_message) {
    for (server_step at : STEPS)
        server.bends.push_back({.at = at, .kind = bend_kind::FILLERS, .amount = 40});
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_FALSE(sim.logged_part("Failed"));
    EXPECT_FALSE(sim.logged_part("failed"));
}

TEST_F(opening, takes_further_values_at_the_end_of_any_message) {
    std::string more = wire::writer().octets("new").open(wire::SEQUENCE).integer(5).close().bytes;
    for (server_step at : STEPS)
        server.bends.push_back({.at = at, .kind = bend_kind::APPEND, .bytes = more});
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_FALSE(sim.logged_part("Failed"));
    EXPECT_FALSE(sim.logged_part("failed"));
}

TEST_F(opening, of_two_strangers_takes_twelve_messages) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    const std::vector<std::string> &messages = server.connections[0].messages;
    auto configure = std::find(messages.begin(), messages.end(), "configure_req");
    EXPECT_EQ(configure - messages.begin(), 12);
    EXPECT_EQ(server.connections[0].wants.version, 514);
    EXPECT_FALSE(server.connections[0].wants.has_master_key);
}

TEST_F(opening, of_acquaintances_takes_seven) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    const std::vector<std::string> &messages = server.connections[1].messages;
    auto time = std::find(messages.begin(), messages.end(), "server_time_req");
    EXPECT_EQ(time - messages.begin(), 7);
    EXPECT_TRUE(server.connections[1].wants.has_hallmark);
}

TEST_F(opening, takes_another_minor_version) {
    server.version = 0x0203;
    begin({{"mem", {wire::continuous("phys", 30)}}});
}

TEST_F(opening, refuses_another_major_version) {
    server.version = 0x0302;
    sim.start_agent();
    sim.run_for(MINUTE);
    EXPECT_TRUE(sim.logged(
        1, "Reason given: \"Tarnix Server does not support our protocol version. Upgrade the Tarnix "
           "Server, or downgrade the Tarnix Agent.\""));
}

TEST_F(opening, of_version_512_leaves_the_acknowledgement_of_the_key_out) {
    server.version = 512;
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_EQ(server.count_messages("key ack"), 0U);
}

TEST_F(opening, of_version_513_has_the_acknowledgement_of_the_key) {
    server.version = 513;
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_EQ(server.count_messages("key ack"), 1U);
}

TEST_F(opening, with_a_wrong_proof_of_the_server_keeps_the_hallmark) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    server.wrong_response = true;
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    EXPECT_TRUE(sim.logged(2, "Reason given: \"Server failed authentication!\""));
    server.wrong_response = false;
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.count_messages("nonce"), 1U);
}

TEST_F(opening, with_a_broken_proof_of_the_server_drops_the_hallmark) {
    begin({{"mem", {wire::continuous("phys", 30)}}});
    server.bends.push_back({.at = server_step::RESPONSE, .kind = bend_kind::CLOSE_BEFORE});
    ASSERT_TRUE(checkins(1));
    EXPECT_TRUE(sim.logged_part("will re-negotiate hallmark"));
    EXPECT_EQ(server.count_messages("nonce"), 2U);
}

TEST_F(opening, tells_what_a_server_says_that_wants_none_of_it) {
    server.bends.push_back({.at = server_step::OFFERS, .kind = bend_kind::NACK, .bytes = "unknown node"});
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_TRUE(sim.logged(2, "Server said: \"unknown node\""));
    EXPECT_TRUE(sim.logged(1, "Reason given: \"Server rejected us\""));
}

TEST_F(opening, does_not_change_servers_where_there_is_only_one) {
    server.bends.push_back({.at = server_step::OFFERS, .kind = bend_kind::CLOSE_BEFORE, .times = 3});
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_FALSE(sim.logged_part("Changed server"));
}

TEST_F(opening, goes_on_registered_with_a_server_that_tells_no_time) {
    server.bends.push_back({.at = server_step::TIME, .kind = bend_kind::CLOSE_BEFORE});
    begin({{"mem", {wire::continuous("phys", 30)}}});
    EXPECT_TRUE(sim.logged(0, "Server does not support time synchronization"));
    EXPECT_FALSE(sim.logged_part("Failed to register"));
}

TEST_F(opening, on_a_slow_and_chopping_network_comes_to_the_same_end) {
    sim.network.latency_ms = 200;
    sim.network.jitter_ms = 3000;
    sim.network.chopped = true;
    begin({{"mem", {wire::continuous("phys", 30)}}});
    ASSERT_TRUE(checkins(10));
    EXPECT_FALSE(sim.logged_part("failed checkin"));
}
