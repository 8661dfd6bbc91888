// The life of the launcher: one agent at a time on two pipes, started again whenever it ends.
//
//     agent to launcher     1        a complete upgrade is in place, the agent ends once it is told to
//                           2        this program works: a trial is over
//     launcher to agent     0        end
//                           closed   end
//
// An end that nobody asked for is followed by a pause: one second, doubling up to five minutes, and one
// second again behind an agent that has lived for ten minutes or has sent byte 2. There is none ahead of an
// upgrade, nor where a failed one was taken back.
#pragma once

#include <cstdint>

inline constexpr int64_t FIRST_PAUSE_MS = 1'000;
inline constexpr int64_t LONGEST_PAUSE_MS = 300'000;
inline constexpr int64_t LONG_LIFE_MS = 600'000;
// How an agent is ended: byte 0, the end of its pipe, force.
inline constexpr int64_t PATIENCE_MS = 60'000;
inline constexpr int64_t LAST_PATIENCE_MS = 10'000;

// Serves in the working directory until the host wants a stop, and gives the exit status of the launcher: 0,
// or 1 where no program was there to begin with. `installed` is copied into an empty folder; `agent_words`
// go to the agent, ended by an absent one.
int supervise(const char *installed, const char *const *agent_words);
