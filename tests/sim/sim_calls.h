// What the agent asks of its host, counted: the trace of a run, and the n-th call that fails.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct sim_calls {
    uint64_t count = 0;   // calls that a host can fail
    uint64_t fail_at = 0; // the one that does; 0 for none
    std::string failed;   // its name, and what it was about
    std::string failed_about;
    bool tracing = false;
    // All calls: when, which (unless it cannot fail), its name and what it was about, "5000 #17 open
    // /etc/passwd".
    std::vector<std::string> trace;
};

// Notes a call of the agent that cannot fail. Calls of other tasks don't count.
void sim_note(const char *name, const char *about = "");
void sim_note(const char *name, int64_t about);

// Notes a call that can. True when it has to fail this time.
bool sim_fails(const char *name, const char *about = "");
bool sim_fails(const char *name, int64_t about);
