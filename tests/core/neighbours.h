// Scripted neighbours of the agent: threads that run when a test says so, the launcher's pipes, and the
// command pipe seen from either end.
#pragma once

#include "core/command_pipe_ops.h"
#include "core/parent_pipes_ops.h"
#include "platform/threads.h"
#include "platform/waits.h"

#include <deque>
#include <string>
#include <vector>

// What one call is to do: succeed with a text, or fail with a code.
struct scripted_read {
    std::string text;
    uint32_t code = 0;
};

struct neighbours {
    neighbours();
    ~neighbours();

    // Threads. A thread that is resumed runs at once, unless it is held.
    bool thread_refused = false;
    bool priority_refused = false;
    bool resume_refused = false;
    bool exit_code_refused = false;
    bool threads_held = false;
    std::vector<int32_t> priorities;
    int threads_made = 0;
    void run_held(); // lets them run to their end

    // Events that were set, of all that were made.
    std::vector<waitable *> set_events;
    bool is_set(const waitable *event) const;
    int open_handles = 0;
    int event_refused_at = 0; // counted down by CreateEventA

    // The launcher: the bytes that a read brings; behind them the pipe ends.
    std::deque<int> orders; // -1 for a read without a byte
    std::string reports;
    uint32_t report_code = 0; // of a write that fails
    bool report_lost = false; // a write brings no byte through

    // The command pipe.
    bool pipe_refused = false;
    std::deque<uint32_t> connects; // codes, ERROR_PIPE_IS_WAITING where there is none
    std::vector<bool> armed;       // each ConnectNamedPipe: with an event or without
    std::deque<scripted_read> reads;
    std::vector<std::string> written;
    uint32_t write_code = 0;
    uint32_t disconnect_code = 0;
    uint32_t open_code = 0;         // of CreateFileA; 0 lets it succeed
    uint32_t refusal = 0;           // the code that tells of an agent that does not serve us
    std::vector<std::string> boxes; // title, text and icon of each message box
    std::vector<std::string> calls;
    command_pipe_ops pipe_ops; // in force; a test may take an optional call away
};

extern neighbours *the_neighbours;
