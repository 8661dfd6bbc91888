// A launcher in memory: its folder, whose power can be cut ahead of any operation, and an agent that does
// what a test has written down for it.
#pragma once

#include "launcher/launcher_ops.h"

#include "fakes/test_host.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

// Thrown ahead of the file operation at which the power is cut.
struct power_cut {};

struct launcher_world {
    launcher_world();
    ~launcher_world();
    launcher_world(const launcher_world &) = delete;
    launcher_world &operator=(const launcher_world &) = delete;

    test_host host;

    // Files. The n-th operation that changes something from now on is not reached; 0 for never.
    int operations_until_cut = 0;
    int operations = 0; // that have changed something
    std::vector<std::string> executables;

    // The agent: what happens, in its order; `then` runs as it does. A wait that finds nothing left, or only
    // what happens later than it lasts, times out; one without a limit ends the test.
    struct happening {
        launcher_event event;
        int64_t after_ms = 0; // since the one before
        std::function<void()> then;
        bool in_life = true; // of the agent; else in a pause as well
    };
    std::deque<happening> happenings;
    void agent_says(uint8_t byte, int64_t after_ms = 0);
    void pipe_ends();
    void agent_ends(int32_t status, int64_t after_ms = 0, std::function<void()> then = {});
    void host_stops(int64_t after_ms = 0, bool in_life = false);

    bool pipes_break = false;
    bool writes_fail = false;
    int failing_starts = 0;            // the next ones fail
    std::function<void()> at_start;    // runs as the agent starts
    std::vector<std::string> calls;    // what the launcher has done to the agent, with its time
    std::vector<std::string> programs; // the content of each program that was started
    std::vector<std::string> starts;   // the words of each
    std::vector<std::pair<bool, std::string>> told;
    int64_t now_ms = 5'000;
    int open_ends = 0;

    bool has_told(bool trouble, const std::string &text) const;
    int64_t called_at(const std::string &call) const; // -1 for never
};

extern launcher_world *the_launcher;
