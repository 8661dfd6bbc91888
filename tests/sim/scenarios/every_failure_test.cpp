#include "sim/scenario.h"

#include <cstdio>
#include <set>

// Makes the first call to the host fail, then the second, and so on, until a run has no such call: every path
// that a failure can take is walked, with no list to keep. Allocations are calls like any other.
//
// Whatever fails, the agent and its server must come to the same end in the same life, or else say what went
// wrong; and a restart must then lead to that end. An agent that gives up does so in the words of fatal, with
// status 1.

namespace {

// All that is left behind when a run is over.
struct outcome {
    std::vector<wire::host_line> host;
    std::vector<wire::offered_group> tree;
    std::vector<wire::description> descriptions;
    std::vector<std::string> results; // of the last delivery
    std::string host_id;
    bool keys_agree; // what the agent has stored is what the server knows
    bool operator==(const outcome &) const = default;
};

struct failure_run {
    scripted_server server;
    host_sim sim;

    failure_run() {
        sim.add_server(server);
        // Counters are browsed, and none is offered: hundreds of devices would all be allocated in the same
        // way.
        sim.settings["perf_cnt_level"] = "1";
        server.checks = {{"mem", {wire::continuous("phys", 30)}},
                         {"system", {wire::continuous("uptime", 30)}}};
    }

    // Lives until so many checkins were acknowledged, or the agent has ended. Whether it came to that.
    bool live(uint32_t acknowledged) {
        uint32_t wanted = server.acknowledged + acknowledged;
        sim.start_agent();
        return sim.run_until([&] { return server.acknowledged >= wanted; }, HOUR) && sim.agent_runs();
    }

    bool stop_cleanly() { return sim.stop_agent() && sim.exit_status == 0 && sim.blocks_at_end == 0; }

    std::string stored(const std::string &key) const {
        std::string text = "\n" + sim.disk.get("/var/lib/tarnix/variables");
        size_t at = text.find("\n" + key + "\t");
        if (at == std::string::npos) return "";
        at += key.size() + 2;
        return text.substr(at, text.find('\n', at) - at);
    }

    outcome look() const {
        agent_account account;
        if (auto found = server.accounts.find("example/agent-1"); found != server.accounts.end())
            account = found->second;
        outcome seen = {.tree = server.tree(), .host_id = stored("host_id")};
        if (!server.requests.empty()) seen.host = server.requests.back().host;
        for (const wire::configuration_request &request : server.requests)
            if (!request.tree.empty()) seen.descriptions = request.descriptions;
        if (!server.deliveries.empty())
            for (const wire::result &result : server.deliveries.back().results)
                seen.results.push_back(result.path + " " + std::to_string(result.status) + " " +
                                       result.comment);
        seen.keys_agree = stored("hostkey") == account.master_key && stored("hallmark") == account.hallmark;
        return seen;
    }
};

// A quiet run to compare with: what it comes to, what it says, and how often it asks its host.
struct quiet_run {
    outcome end;
    std::set<std::string> lines;
    uint64_t first; // call behind those that read the settings
    uint64_t calls;
};

} // namespace

// What a host may keep to itself by design: a line of its description, or a volume, is then left out without
// a word.
static bool may_be_left_out(const std::string &name) {
    for (const char *silent : {"allocate", "gethostname", "GetAdaptersInfo", "GetDiskFreeSpaceExA",
                               "GetVersionExA", "GlobalMemoryStatusEx", "GetNetworkParams"})
        if (name == silent) return true;
    return false;
}

static bool said_something(const failure_run &run, const quiet_run &quiet) {
    for (const sim_line &line : run.sim.log)
        if (!quiet.lines.contains(line.text)) return true;
    return false;
}

// A fatal end is told, and so is an agent that has to do without its variables, and with them without its
// keys, until it is started again. The next life goes on.
static bool revive(failure_run &run) {
    if (run.sim.agent_runs()) {
        EXPECT_TRUE(run.sim.logged_part("Unable to read variables: "));
        EXPECT_TRUE(run.stop_cleanly());
    } else {
        EXPECT_EQ(run.sim.exit_status, 1);
        EXPECT_TRUE(run.sim.logged_part("Fatal error: "));
    }
    return run.live(3);
}

static void judge(failure_run &run, const quiet_run &quiet, bool alive) {
    const std::string &name = run.sim.calls.failed;
    if (!alive) alive = revive(run);
    ASSERT_TRUE(alive) << "no recovery behind " << name;
    EXPECT_TRUE(run.stop_cleanly()) << "blocks left: " << run.sim.blocks_at_end << " behind " << name;
    EXPECT_EQ(run.server.violations, std::vector<std::string>());
    if (run.look() == quiet.end) return;
    EXPECT_TRUE(said_something(run, quiet) || may_be_left_out(name))
        << name << " made a difference in silence";
    run.server.scan_wanted = true;
    ASSERT_TRUE(run.live(3)) << "no recovery by a restart behind " << name;
    EXPECT_TRUE(run.stop_cleanly());
    EXPECT_TRUE(run.look() == quiet.end) << "another end behind " << name;
}

// Under a sanitizer every seventh call has to do.
static uint64_t step() {
#if defined(__SANITIZE_THREAD__)
    return 29;
#elif defined(__SANITIZE_ADDRESS__)
    return 7;
#else
    return 1;
#endif
}

static uint64_t find_first(const host_sim &sim, uint64_t from) {
    for (const std::string &line : sim.calls.trace) {
        size_t number = line.find('#');
        if (number == std::string::npos || !line.ends_with(" open /var/log/tarnix/agent.log")) continue;
        uint64_t call = std::stoull(line.substr(number + 1));
        if (call > from) return call - from;
    }
    return 1;
}

using preparation = std::function<void(failure_run &)>;

// `prepare` brings a host to where the walk begins; the life behind it is the one whose calls fail.
static void run_quietly(const preparation &prepare, quiet_run *out) {
    failure_run run;
    prepare(run);
    uint64_t before = run.sim.calls.count;
    run.sim.calls.tracing = true;
    ASSERT_TRUE(run.live(3));
    out->calls = run.sim.calls.count - before;
    out->first = find_first(run.sim, before);
    ASSERT_TRUE(run.stop_cleanly());
    out->end = run.look();
    for (const sim_line &line : run.sim.log)
        out->lines.insert(line.text);
}

static void walk(const char *what, const preparation &prepare) {
    quiet_run quiet;
    run_quietly(prepare, &quiet);
    uint64_t walked = 0;
    for (uint64_t n = quiet.first; !testing::Test::HasFailure(); n += step()) {
        SCOPED_TRACE(std::string(what) + ", call " + std::to_string(n));
        failure_run run;
        prepare(run);
        run.sim.calls.fail_at = run.sim.calls.count + n;
        bool alive = run.live(3);
        if (run.sim.calls.failed.empty()) break;
        walked++;
        judge(run, quiet, alive);
    }
    printf(
        "%s: made %llu calls fail, one a run; an undisturbed run has %llu, %llu of them for its settings\n",
        what, 0ULL + walked, 0ULL + quiet.calls, 0ULL + quiet.first - 1);
}

TEST(every_failure, of_a_first_meeting_is_told_or_made_good) {
    walk("first meeting", [](failure_run &run) {
        run.sim.settings["log_chk_conf"] = "/etc/logs.conf";
        run.sim.disk.put("/etc/logs.conf", "/srv/**/*.log\n/var/*/app.log\neventlog:*\n");
        run.sim.disk.put("/srv/1/2/a.log", "");
        run.sim.disk.put("/var/x/app.log", "");
    });
}

TEST(every_failure, of_a_restart_is_told_or_made_good) {
    walk("restart", [](failure_run &run) {
        ASSERT_TRUE(run.live(2));
        ASSERT_TRUE(run.stop_cleanly());
    });
}

// A setting that cannot be read counts as one that is not set. An agent that goes by its address for that
// reason is another agent to the server, so there is no common end.
TEST(every_failure, of_reading_the_settings_is_told_where_it_makes_a_difference) {
    quiet_run quiet;
    run_quietly([](failure_run &) {}, &quiet);
    for (uint64_t n = 1; n < quiet.first && !testing::Test::HasFailure(); n += step()) {
        SCOPED_TRACE("call " + std::to_string(n));
        failure_run run;
        run.sim.calls.fail_at = n;
        if (!run.live(3)) {
            EXPECT_EQ(run.sim.exit_status, 1);
            EXPECT_TRUE(run.sim.logged_part("Fatal error: "));
            continue;
        }
        EXPECT_TRUE(run.stop_cleanly());
        EXPECT_TRUE(run.look() == quiet.end || said_something(run, quiet)) << run.sim.calls.failed;
    }
}
