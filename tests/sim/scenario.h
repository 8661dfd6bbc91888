// What most scenarios begin and end with: one agent and one server, called "server", which have not met yet.
//
// Behind each scenario the agent is stopped in order; it must have freed all that it had, and must never have
// sent what an agent must not send.
#pragma once

#include "sim/host_sim.h"

#include <gtest/gtest.h>

struct scenario : testing::Test {
    scripted_server server; // outlives the host whose connections it serves
    host_sim sim;

    scenario() { sim.add_server(server); }

    void TearDown() override {
        if (sim.agent_runs()) stop();
        EXPECT_EQ(server.violations, std::vector<std::string>());
        EXPECT_EQ(sim.network.vain_closes, 0U) << "sockets closed twice";
    }

    void stop() {
        EXPECT_TRUE(sim.stop_agent());
        EXPECT_EQ(sim.exit_status, 0);
        EXPECT_EQ(sim.blocks_at_end, 0U) << "blocks that the agent has not freed";
        EXPECT_EQ(sim.events_at_end, 0U) << "events that the agent has not closed";
        EXPECT_EQ(sim.programs.open_at_end, 0) << "programs and pipes that the agent has not closed";
    }

    // Starts the agent with these checks configured, and waits until they run: the server has seen the tree.
    void begin(std::vector<wire::group> checks) {
        server.checks = std::move(checks);
        sim.start_agent();
        uint32_t before = server.registrations;
        EXPECT_TRUE(sim.run_until([&] { return server.registrations >= before + 2; }, HOUR));
    }

    // Waits until so many more checkins have been acknowledged.
    bool checkins(uint32_t count, int64_t seconds = 10 * DAY) {
        uint32_t wanted = server.acknowledged + count;
        return sim.run_until([&] { return server.acknowledged >= wanted; }, seconds);
    }

    // Seconds since the simulation began.
    int64_t now() const { return sim.wall_time() - SIM_START; }

    // With probes.counts_looks: the results of "mem/phys" from its first check on have come in their order,
    // none was lost and none came twice.
    void expect_each_look_once() {
        std::vector<wire::result> results = server.results("mem/phys");
        std::vector<int64_t> checks = sim.times_logged("Agent will check device phys ");
        ASSERT_FALSE(results.empty());
        ASSERT_GE(checks.size(), results.size());
        for (size_t i = 0; i < results.size(); i++) {
            ASSERT_EQ(results[i].value, results[0].value + static_cast<int64_t>(i));
            ASSERT_EQ(results[i].time, checks[i]);
        }
    }
};

// first, first + step, first + 2 * step … , as many as that.
inline std::vector<int64_t> every(int64_t step, int64_t first, size_t count) {
    std::vector<int64_t> times;
    for (size_t i = 0; i < count; i++)
        times.push_back(first + static_cast<int64_t>(i) * step);
    return times;
}
