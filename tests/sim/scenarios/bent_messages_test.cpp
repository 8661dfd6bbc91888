#include "sim/scenario.h"

// A server that bends one of its messages, whichever, and an agent that comes to its checks all the same.

// What a server sends on the way to a first acknowledged checkin, in order.
static constexpr server_step STEPS[] = {
    server_step::OFFERS, server_step::DH_PARAMETERS, server_step::DH_PUBLIC, server_step::KEY_ACK,
    server_step::NONCE,  server_step::CHALLENGE,     server_step::RESPONSE,  server_step::CONFIGURE_RESP,
    server_step::TIME,   server_step::CHECKIN_RESP,  server_step::SCAN_RESP,
};

// Bends each step in turn, and expects the agent to come to its checks all the same.
static void expect_recovery_from(bend_kind kind, int64_t amount, const std::string &bytes = "") {
    for (server_step at : STEPS) {
        SCOPED_TRACE("step " + std::to_string(static_cast<int>(at)));
        scripted_server server;
        host_sim sim;
        sim.add_server(server);
        server.checks = {{"mem", {wire::continuous("phys", 30)}}};
        server.bends.push_back({.at = at, .kind = kind, .amount = amount, .bytes = bytes});
        sim.start_agent();
        auto done = [&] { return !server.results("mem/phys").empty() && !server.tree().empty(); };
        EXPECT_TRUE(sim.run_until(done, 3 * HOUR));
        EXPECT_EQ(server.bends[0].times, 0U);
        EXPECT_TRUE(sim.stop_agent());
        EXPECT_EQ(sim.blocks_at_end, 0U);
    }
}

TEST(any_message, may_be_replaced_by_a_close) {
    expect_recovery_from(bend_kind::CLOSE_BEFORE, 0);
}

TEST(any_message, may_be_followed_by_a_close) {
    expect_recovery_from(bend_kind::CLOSE_AFTER, 0);
}

TEST(any_message, may_be_cut) {
    expect_recovery_from(bend_kind::CUT, 3);
}

TEST(any_message, may_be_replaced_by_noise) {
    expect_recovery_from(bend_kind::NOISE, 64);
}

TEST(any_message, may_be_left_unsaid) {
    expect_recovery_from(bend_kind::SILENT, 0);
}

TEST(any_message, may_come_with_a_definite_length) {
    expect_recovery_from(bend_kind::DEFINITE, 0);
}

TEST(any_message, may_be_replaced_by_a_refusal) {
    expect_recovery_from(bend_kind::NACK, 0, "no");
}

TEST(any_message, may_be_replaced_by_another) {
    expect_recovery_from(bend_kind::REPLACE, 0, wire::downtime_resp(true, "what"));
}
