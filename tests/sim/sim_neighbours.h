// What lives beside the agent on a simulated host: its threads, the launcher at the other end of two pipes,
// and the clients of the command channel.
#pragma once

#include "core/command_pipe_ops.h"
#include "core/parent_pipes_ops.h"
#include "platform/threads.h"

#include <deque>
#include <set>
#include <string>

struct sim_task;

// The numbers that stand for the launcher's pipes on the agent's command line.
inline constexpr const char *SIM_PARENT_READ = "5";
inline constexpr const char *SIM_PARENT_WRITE = "6";

// The launcher's ends.
struct sim_launcher {
    std::deque<uint8_t> orders; // on their way to the agent
    bool gone = false;          // both pipes have ended
    std::string reports;        // bytes of the agent
    bool takes_nothing = false; // a write to it brings no byte through
};

// A client of the command channel: it writes its command when it is connected.
struct sim_client {
    std::string command;
    bool silent = false;   // never writes
    bool vanishes = false; // has gone before the agent looks
    bool deaf = false;     // has gone before the reply
    std::string reply;
    bool served = false;
};

enum class sim_contact { ABSENT, BUSY, CONNECTED };

struct sim_channel {
    command_pipe *pipe = nullptr;
    waitable *event = nullptr; // of the wait for a client; absent while nobody can connect
    sim_client *client = nullptr;
    sim_contact connect(sim_client *caller);
};

extern const threads_ops sim_threads;
extern const parent_pipe_ops sim_parent_pipes;
extern const command_pipe_ops sim_command_pipe;
