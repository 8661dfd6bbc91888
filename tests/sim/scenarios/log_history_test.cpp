#include "sim/log_scenario.h"

#include <algorithm>
#include <cstdio>
#include <set>

// Days of several logs at random: lines, rotations, outages, lives that end in order or at once. Each line
// that a rule reports comes, in the order of its log; and once, where no life has ended at once.

namespace {

// One log, and the lines of it that have to come.
struct written_log {
    std::string path;
    int next = 1; // number of the next line
    texts due;

    void write(host_sim *sim, int count) {
        for (int i = 0; i < count; i++, next++) {
            bool reported = next % 3 != 0;
            std::string line = path + (reported ? " tells " : " prattles ") + std::to_string(next);
            sim->disk.append(path, line + "\n");
            if (reported) due.push_back(line);
        }
    }
};

struct history {
    static constexpr int32_t PERIOD = 300;

    scripted_server server;
    host_sim sim;
    std::vector<written_log> logs;
    int rotations = 0, outages = 0, stops = 0, cuts = 0;

    explicit history(uint64_t seed, int log_count) : server(seed), sim(seed) {
        sim.add_server(server);
        sim.settings["loglevel"] = "1";
        server.checkin_frequency = 240;
        std::vector<wire::check> checks;
        for (int i = 0; i < log_count; i++) {
            logs.push_back({.path = "/srv/" + std::to_string(i % 3) + "/" + std::to_string(i) + ".log"});
            sim.disk.put(logs.back().path, "history\n");
            checks.push_back(followed_log(logs.back().path, PERIOD,
                                          {{.regex = "'tells'", .status = 1, .decision = REPORT}}));
        }
        server.checks = log_tree(checks);
        sim.start_agent();
        sim.run_for(20 * MINUTE);
    }

    uint64_t draw(uint64_t below) { return sim.scheduler.chance() % below; }
    written_log *any_log() { return &logs[draw(logs.size())]; }

    // Until all that was written has been read, and if the server is there also delivered.
    void settle() { sim.run_for(HOUR); }
    void read_all() { sim.run_for(PERIOD + 2); }

    void write_somewhere() {
        for (uint64_t i = draw(4); i-- > 0;)
            any_log()->write(&sim, static_cast<int>(1 + draw(20)));
    }
    void rotate() {
        read_all(); // what was not read goes with the file
        written_log *log = any_log();
        rotations++;
        switch (draw(3)) {
        case 0:
            sim.disk.rename(log->path, log->path + ".1");
            sim.disk.put(log->path, "");
            break;
        case 1:
            sim.disk.overwrite(log->path, "");
            break;
        default:
            sim.disk.rename(log->path, log->path + ".1");
            sim.run_for(static_cast<int64_t>(draw(300)));
            sim.disk.put(log->path, "");
        }
        log->write(&sim, static_cast<int>(draw(60)));
    }
    void go_away() {
        outages++;
        sim.network.place("server").state = draw(2) == 0 ? place_state::REFUSES : place_state::SWALLOWS;
        for (uint64_t i = draw(6); i-- > 0;) {
            write_somewhere();
            sim.run_for(static_cast<int64_t>(draw(2 * HOUR)));
        }
        sim.network.place("server").state = place_state::UP;
    }
    // With nothing on the way to the server, which would end with the process.
    void stop() {
        stops++;
        settle();
        EXPECT_TRUE(sim.stop_agent());
        EXPECT_EQ(sim.blocks_at_end, 0U);
    }
    // Right behind a delivery, when the stored places may be older than what was delivered.
    void cut_power() {
        cuts++;
        settle();
        write_somewhere();
        read_all();
        uint32_t before = server.acknowledged;
        EXPECT_TRUE(sim.run_until([&] { return server.acknowledged > before; }, HOUR));
        sim.cut_power();
    }
    void live_again(bool in_order) {
        in_order ? stop() : cut_power();
        write_somewhere();
        sim.start_agent();
    }
    void step(bool with_cuts) {
        switch (draw(12)) {
        case 0:
        case 1:
            return rotate();
        case 2:
            return go_away();
        case 3:
            return live_again(!with_cuts || draw(2) == 0);
        default:
            write_somewhere();
            sim.run_for(static_cast<int64_t>(draw(HOUR)));
        }
    }
};

} // namespace

// All lines in the order of their first coming.
static texts first_comings(const texts &all) {
    std::set<std::string> seen;
    texts firsts;
    for (const std::string &entry : all)
        if (seen.insert(entry).second) firsts.push_back(entry);
    return firsts;
}

static void live_through(uint64_t seed, bool with_cuts) {
    SCOPED_TRACE(seed);
    history past(seed, 12);
    for (int64_t end = past.sim.wall_time() + 5 * DAY; past.sim.wall_time() < end;)
        past.step(with_cuts);
    past.settle();
    size_t lines = 0;
    size_t repeated = 0;
    for (const written_log &log : past.logs) {
        texts came = entries_of(past.server, log.path);
        EXPECT_EQ(with_cuts ? first_comings(came) : came, log.due) << log.path;
        lines += log.due.size();
        repeated += came.size() - log.due.size();
    }
    EXPECT_TRUE(past.sim.stop_agent());
    EXPECT_EQ(past.sim.blocks_at_end, 0U);
    EXPECT_EQ(past.server.violations, texts{});
    printf("seed %llu: %zu lines, %d rotations, %d outages, %d orderly ends, %d power cuts, %zu repeated\n",
           0ULL + seed, lines, past.rotations, past.outages, past.stops, past.cuts, repeated);
}

TEST(log_history, of_five_days_brings_each_line_once_and_in_order) {
    for (uint64_t seed = 1; seed <= 3 && !testing::Test::HasFailure(); seed++)
        live_through(seed, false);
}

TEST(log_history, of_five_days_with_power_cuts_brings_each_line_in_order) {
    for (uint64_t seed = 11; seed <= 13 && !testing::Test::HasFailure(); seed++)
        live_through(seed, true);
}
