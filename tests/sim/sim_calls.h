// What the agent asks of its host, counted: the trace of a run, and the n-th call that fails.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct sim_calls {
    uint64_t count = 0;   // calls that a host can fail
    uint64_t fail_at = 0; // the one that does; 0 for none
    std::string failed;   // its name
    bool tracing = false;
    std::vector<std::string> trace; // all calls with what they were about, and when
};

// Notes a call of the agent that cannot fail. Calls of other tasks don't count.
void sim_note(const char *name, const std::string &about = "");

// Notes a call that can. True when it has to fail this time.
bool sim_fails(const char *name, const std::string &about = "");
