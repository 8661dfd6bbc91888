#include "sim/log_scenario.h"

#include <algorithm>
#include <cstdio>

// A log is followed through a rotation while the n-th call to the host fails, for each n that there is.

namespace {

struct followed_run {
    static constexpr const char *APP = log_scenario::APP;

    scripted_server server;
    host_sim sim;
    texts written;
    texts written_later; // than the failure

    followed_run() {
        sim.add_server(server);
        sim.settings["loglevel"] = "1";
        server.checkin_frequency = 20;
        server.checks = log_tree({followed_log(APP, 10, {REPORT_ALL})});
        sim.disk.put(APP, "history\n");
        sim.start_agent();
        sim.run_for(25);
    }

    void write(int first, int count) {
        sim.disk.append(APP, numbered_lines("a line of this log, and its number is", first, count));
        for (const std::string &entry :
             numbered_entries("a line of this log, and its number is", first, count)) {
            written.push_back(entry);
            if (!sim.calls.failed.empty()) written_later.push_back(entry);
        }
    }
    // An agent that had to give up is started again.
    void let_live(int64_t seconds) {
        sim.run_for(seconds);
        if (!sim.agent_runs()) {
            EXPECT_EQ(sim.exit_status, 1);
            EXPECT_TRUE(sim.logged_part("Fatal error: "));
            sim.start_agent();
        }
    }
    // What goes on while calls are counted.
    void live() {
        write(1, 4);
        let_live(25);
        sim.disk.rename(APP, std::string(APP) + ".1");
        sim.disk.put(APP, "");
        write(5, 2);
        let_live(12);
        write(7, 4);
        let_live(25);
    }
    // Behind them.
    void live_on() {
        sim.calls.fail_at = 0;
        write(11, 3);
        let_live(MINUTE);
        let_live(MINUTE);
    }
    bool came(const std::string &entry) const {
        texts all = entries_of(server, APP);
        return std::find(all.begin(), all.end(), entry) != all.end();
    }
};

// Under a sanitizer every seventh call has to do.
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

// A line that was there when the call failed is lost only with a process that gives up after reading it, or
// where the disk does not go to the place that it is told: the reader then takes its bytes from where the
// disk stands.
static bool may_lose(const followed_run &run, bool died) {
    return died || run.sim.calls.failed == "seek";
}

static void judge(const followed_run &run, bool died) {
    EXPECT_TRUE(!died || run.sim.calls.failed == "allocate") << run.sim.calls.failed;
    std::string failure = run.sim.calls.failed + " (" + run.sim.calls.failed_about + ")";
    for (const std::string &entry : may_lose(run, died) ? run.written_later : run.written)
        EXPECT_TRUE(run.came(entry)) << entry << ", lost by a failure of " << failure;
}

TEST(log_failure, of_any_call_loses_no_line_that_is_written_behind_it) {
    uint64_t walked = 0;
    uint64_t deaths = 0;
    for (uint64_t n = 1; !testing::Test::HasFailure(); n += step()) {
        SCOPED_TRACE("call " + std::to_string(n));
        followed_run run;
        run.sim.calls.fail_at = run.sim.calls.count + n;
        run.live();
        bool failed = !run.sim.calls.failed.empty();
        run.live_on();
        bool died = run.sim.logged_part("Fatal error: ");
        judge(run, died);
        EXPECT_TRUE(run.sim.stop_agent());
        EXPECT_EQ(run.sim.blocks_at_end, 0U) << "behind " << run.sim.calls.failed;
        EXPECT_EQ(run.server.violations, texts{});
        if (!failed) {
            EXPECT_EQ(entries_of(run.server, followed_run::APP), run.written);
            break;
        }
        walked++;
        deaths += died;
    }
    printf("made %llu calls fail, one a run; the agent gave up %llu times\n", 0ULL + walked, 0ULL + deaths);
}
