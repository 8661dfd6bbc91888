// The administrator's programs on a simulated host, each a timeline that begins with its start.
#pragma once

#include "custom/custom_ops.h"

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

struct sim_output {
    int64_t at_ms;
    std::string text;
};

inline constexpr int64_t WITH_ITS_END = -1;

struct sim_program {
    std::vector<sim_output> output;
    int64_t ends_at_ms = 0; // NEVER for one that has to be killed
    uint32_t exit_code = 0;
    int64_t closes_at_ms = WITH_ITS_END; // when nobody holds its output any more
};

struct sim_run {
    std::string command;
    sim_program program;
    int64_t started_ms;
    bool watched;                  // a custom check's; an action's is not
    int64_t killed_ms = INT64_MAX; // when somebody killed it
};

struct sim_programs {
    std::map<std::string, sim_program> known; // by command line
    std::list<sim_run> runs;                  // all that were started
    int open = 0;                             // programs and pipes that the agent has not closed
    int open_at_end = 0;                      // when its last life ended

    size_t count(const std::string &command) const;
    // Those of custom checks that go on although nobody waits for them.
    size_t count_left() const;
    void bury();
};

extern const custom_ops sim_custom;
