// A host in memory on which the whole agent runs: months of its life within seconds, the same run for the
// same seed.
//
//     host_sim sim;
//     sim.add_server(server);
//     sim.start_agent();
//     EXPECT_TRUE(sim.run_until([&] { return server.checkins == 3; }, 600));
//
// The test has the world to itself between two runs: while it looks at or changes something, nobody else
// runs.
#pragma once

#include "core/signals.h"
#include "sim/sim_calls.h"
#include "sim/sim_disk.h"
#include "sim/sim_hardware.h"
#include "sim/sim_neighbours.h"
#include "sim/sim_network.h"
#include "sim/sim_probes.h"
#include "sim/sim_programs.h"
#include "sim/sim_running.h"
#include "sim/sim_scheduler.h"
#include "wire/scripted_server.h"

#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

struct waitable;

inline constexpr int64_t SIM_START = 1'000'000'000; // seconds since 1970 when a simulation begins
inline constexpr int64_t MINUTE = 60;
inline constexpr int64_t HOUR = 3600;
inline constexpr int64_t DAY = 86400;

struct sim_line {
    int64_t time; // seconds on the host's clock
    int32_t level;
    std::string text;
};

struct host_sim {
    explicit host_sim(uint64_t seed = 1);
    ~host_sim();
    host_sim(const host_sim &) = delete;

    const uint64_t seed;
    sim_scheduler scheduler;
    sim_calls calls;
    sim_network network;
    sim_disk disk;
    sim_probes probes;
    sim_running running;
    sim_programs programs;
    sim_hardware hardware;

    // Time. The wall clock can be set, which moves no deadline.
    int64_t wall_offset = SIM_START;
    int64_t wall_time() const { return wall_offset + scheduler.now_ms / 1000; }
    void set_clock(int64_t seconds_forward) { wall_offset += seconds_forward; }

    // A server under this name; more names may lead to the same one. It sees this host's clock.
    void add_server(scripted_server &server, const std::string &name = "server", uint16_t port = 3241);

    // The settings file of the machine, and that of the user, who has one if he has a home; the agent reads
    // them when it starts.
    std::map<std::string, std::string> settings;
    std::map<std::string, std::string> user_settings;
    std::string home;

    // One life of the agent. Its arguments follow the program's name.
    void start_agent(const std::vector<std::string> &arguments = {});
    int restart = 0; // the word of its first line
    bool agent_runs() const { return scheduler.any_of_agent(); }
    std::optional<int> exit_status; // of the life that has ended by itself

    // Lets everybody run until `done`, the agent's end, or the seconds are over. Whether it is done.
    bool run_until(const std::function<bool()> &done, int64_t seconds);
    void run_for(int64_t seconds);

    // Signals to the agent.
    void signal_checkin();
    void signal_burst();
    void signal_stop();
    void signal_reopen();
    // Stops it in order, and says whether it has ended within a minute.
    bool stop_agent();
    // It is gone at once.
    void kill_agent();
    // The power goes now, or will as soon as the agent's next change of the disk. What was not synced is
    // lost.
    void cut_power();
    bool power_cut = false;
    void power_goes();

    // The log, of all lives.
    std::vector<sim_line> log;
    bool logged(int32_t level, const std::string &text) const;
    bool logged_part(const std::string &part) const { return count_logged(part) > 0; }
    int count_logged(const std::string &part) const;
    std::vector<int64_t> times_logged(const std::string &part) const;
    std::string console; // what went to stderr
    std::vector<std::string> events;

    // The heap: blocks of the agent that are not freed.
    std::unordered_set<void *> blocks;
    size_t blocks_at_end = 0; // when the last life ended
    size_t events_at_end = 0; // that were not closed then

    std::map<waitable *, bool> handles; // manual reset or not
    uint32_t last_error = 0;
    signal_events signals = {};

    // The agent's neighbours, and where its program lies.
    sim_launcher launcher;
    sim_channel channel;
    std::string program = "/var/lib/tarnix/program/tnagent";
    void start_thread(std::function<void()> body);

private:
    void live();
    void run_in_agent(const std::function<void()> &body);
    void bury_agent();
    std::vector<std::string> words; // of its command line
};

// TN_SIM_SEED where it is set, so that a seed that a failure has printed can be run again.
uint64_t scenario_seed(uint64_t otherwise);

extern host_sim *the_sim;
