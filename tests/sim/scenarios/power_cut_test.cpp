#include "sim/scenario.h"

// The power goes ahead of the n-th change of the disk, for each n that there is. Whatever was on the way, the
// host comes back with the old variables or the new ones, and agent and server find together again.

namespace {

struct power_run {
    scripted_server server;
    host_sim sim;

    explicit power_run(uint64_t seed) : server(seed), sim(seed) {
        sim.add_server(server);
        sim.settings["loglevel"] = "2";
        server.checks = {{"mem", {wire::continuous("phys", 20)}}};
        server.servers = {{"server", 3241}}; // a variable more
    }

    // Lives until the power goes, or for five minutes.
    void live() {
        sim.start_agent();
        sim.run_for(5 * MINUTE);
    }

    bool recovers() {
        uint32_t before = server.acknowledged;
        sim.start_agent();
        return sim.run_until([&] { return server.acknowledged > before + 1; }, HOUR);
    }
};

} // namespace

static void expect_whole_variables(const host_sim &sim) {
    std::string text = sim.disk.get("/var/lib/tarnix/variables");
    if (text.empty()) return;
    EXPECT_EQ(text.back(), '\n');
    EXPECT_FALSE(sim.logged_part("no variable, passed over"));
}

TEST(power_cut, ahead_of_any_change_of_the_disk_is_survived) {
    uint64_t cuts = 0;
    for (uint64_t n = 1; !testing::Test::HasFailure(); n++) {
        SCOPED_TRACE("change " + std::to_string(n));
        power_run run(n);
        run.sim.disk.cut_at = n;
        run.live();
        if (!run.sim.power_cut) break;
        cuts++;
        run.sim.cut_power();
        EXPECT_TRUE(run.recovers());
        expect_whole_variables(run.sim);
        EXPECT_EQ(run.server.violations, std::vector<std::string>());
    }
    printf("cut the power ahead of each of %llu changes\n", 0ULL + cuts);
    EXPECT_GT(cuts, 20U);
}

TEST(power_cut, behind_the_first_checkin_keeps_the_keys) {
    for (uint64_t seed = 1; seed <= 20; seed++) {
        SCOPED_TRACE(seed);
        power_run run(seed);
        run.sim.start_agent();
        ASSERT_TRUE(run.sim.run_until([&] { return run.server.acknowledged == 1; }, HOUR));
        run.sim.cut_power();
        EXPECT_TRUE(run.recovers());
        EXPECT_EQ(run.server.count_messages("diffie_hellmann_parameters"), 1U);
        EXPECT_EQ(run.server.count_messages("nonce"), 1U);
    }
}

TEST(power_cut, again_and_again_ends_in_nothing_worse) {
    for (uint64_t seed = 1; seed <= 10; seed++) {
        SCOPED_TRACE(seed);
        power_run run(seed);
        for (int cut = 0; cut < 15; cut++) {
            run.sim.disk.cut_at = 1 + run.sim.scheduler.chance() % 40;
            run.live();
            run.sim.cut_power();
        }
        EXPECT_TRUE(run.recovers());
        expect_whole_variables(run.sim);
    }
}
