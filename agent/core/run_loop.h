// The agent's only scheduler: one thread alternates between the check that is due next, the checkin when it
// is due, and a sleep that also serves local commands.
#pragma once

#include "devtree/devtree.h"

#include <atomic>
#include <cstdint>

// Never returns; the process ends by exit. `restart` selects a word of the first line.
[[noreturn]] void run_loop(int restart);

// Inputs of the loop, set by signals.
extern std::atomic<int32_t>
    force_checkin_flag;                 // the next wait ends in a checkin at once, without a limit on results
extern std::atomic<int32_t> burst_flag; // all checks are to be marked for a burst

extern std::atomic<int32_t> upgrade_pending; // a complete upgrade lies ready

// Forgets the failures, holds and flags, for tests.
void run_loop_reset();
