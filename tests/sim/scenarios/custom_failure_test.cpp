#include "sim/scenario.h"

#include <cstdio>

// Custom checks and actions go on while the n-th call to the host fails, for each n that there is: of the
// runs one at most fails, in words, and the next ones are right again.

namespace {

struct custom_failure_run {
    scripted_server server;
    host_sim sim;

    custom_failure_run() {
        sim.add_server(server);
        sim.settings["loglevel"] = "0";
        sim.settings["perf_cnt_level"] = "1"; // thousands of calls for counters would be all alike
        sim.settings["custom_chk_conf"] = "/etc/custom.conf";
        sim.settings["actions_conf"] = "/etc/actions.conf";
        sim.disk.put("/etc/custom.conf",
                     "[count]\ncommand=count\ntype=integer\n[slow]\ncommand=slow\ntimeout=1\n");
        sim.disk.put("/etc/actions.conf", "[repair]\ncommand=repair\n");
        sim.programs.known = {
            {"count", {.output = {{10, "noise\nResu"}, {20, "lt: 42"}}, .ends_at_ms = 30}},
            {"slow", {.output = {{10, "x"}}, .ends_at_ms = NEVER}},
            {"repair", {.ends_at_ms = NEVER}},
        };
        server.checkin_frequency = 20;
        server.checks = {{"custom", {wire::continuous("count", 10), wire::bitmap("slow", 30, {})}}};
        sim.start_agent();
        sim.run_for(25);
    }
    // An agent that had to give up is started again.
    void let_live(int64_t seconds) {
        sim.run_for(seconds);
        if (sim.agent_runs()) return;
        EXPECT_EQ(sim.exit_status, 1);
        EXPECT_TRUE(sim.logged_part("Fatal error: "));
        sim.start_agent();
    }
    // What goes on while calls are counted.
    void live() {
        server.scan_wanted = true;
        server.actions = {{"action", {"repair"}}};
        let_live(50);
    }
    // Behind them, with a scan for what the failure has cost the last one.
    void live_on() {
        sim.calls.fail_at = 0;
        server.scan_wanted = true;
        let_live(MINUTE);
        server.actions = {{"action", {"repair"}}};
        let_live(2 * MINUTE);
    }
};

uint64_t step() {
#if defined(__SANITIZE_THREAD__)
    return 29;
#elif defined(__SANITIZE_ADDRESS__)
    return 7;
#else
    return 1;
#endif
}

} // namespace

static void judge(const custom_failure_run &run) {
    std::string behind = "behind " + run.sim.calls.failed + " (" + run.sim.calls.failed_about + ")";
    std::vector<wire::result> counts = run.server.results("custom/count");
    ASSERT_GE(counts.size(), 6U) << behind;
    for (size_t i = 0; i < counts.size(); i++) {
        bool right = counts[i].status == 0 && counts[i].value == 42;
        bool told = counts[i].status == 3 && !counts[i].comment.empty();
        bool comment_follows = counts[i].status == 3 && i + 1 < counts.size(); // it goes with the newest
        EXPECT_TRUE(right || told || comment_follows) << behind;
    }
    for (size_t i = counts.size() - 3; i < counts.size(); i++)
        EXPECT_EQ(counts[i].value, 42) << behind;
    std::vector<wire::result> slow = run.server.results("custom/slow");
    ASSERT_FALSE(slow.empty());
    EXPECT_EQ(slow.back().comment, "Timeout (1 s)") << behind;
    EXPECT_GE(run.sim.programs.count("repair"), 1U) << behind;
    EXPECT_LE(run.sim.programs.count("repair"), 2U) << behind;
}

TEST(custom_failure, of_any_call_costs_one_reading_at_most) {
    uint64_t walked = 0;
    uint64_t deaths = 0;
    for (uint64_t n = 1; !testing::Test::HasFailure(); n += step()) {
        SCOPED_TRACE("call " + std::to_string(n));
        custom_failure_run run;
        run.sim.calls.fail_at = run.sim.calls.count + n;
        run.live();
        bool failed = !run.sim.calls.failed.empty();
        run.live_on();
        judge(run);
        bool died = run.sim.logged_part("Fatal error: ");
        EXPECT_TRUE(run.sim.stop_agent());
        EXPECT_EQ(run.sim.blocks_at_end, 0U) << "behind " << run.sim.calls.failed;
        EXPECT_EQ(run.sim.events_at_end, 0U) << "behind " << run.sim.calls.failed;
        EXPECT_EQ(run.sim.programs.open_at_end, 0) << "behind " << run.sim.calls.failed;
        // A fatal end leaves the program of the run to itself.
        EXPECT_LE(run.sim.programs.count_left(), died ? 1U : 0U) << "behind " << run.sim.calls.failed;
        EXPECT_EQ(run.server.violations, std::vector<std::string>());
        if (!failed) break;
        walked++;
        deaths += died;
    }
    printf("made %llu calls fail, one a run; the agent gave up %llu times\n", 0ULL + walked, 0ULL + deaths);
}
