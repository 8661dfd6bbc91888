// The launcher holds the agent on two pipes: single bytes go both ways, and the end of its pipe is an order
// to stop.
//
//     agent to launcher     1   a complete upgrade is in place, the agent is about to exit
//                           2   a checkin was acknowledged: this program works; once a process
//     launcher to agent     0   stop
//                      others   ignored
#pragma once

#include <cstdint>

struct waitable;

// The ends of the launcher's pipes, as the command line gives them; 0 for no launcher.
void set_parent_pipes(int32_t read_end, int32_t write_end);

// Starts the thread that reads the launcher's bytes; it ends at once where there is no launcher. `stop`,
// which may be absent, ends it although the launcher is silent.
void start_watching_parent(waitable *stop);

// Waits for that thread without limit: behind an upgrade the launcher has the last word.
void end_watching_parent();

// Tells the launcher that a complete upgrade is in place. A failure is logged, and stops nothing.
void report_upgrade();

// Tells the launcher, once, that this program works.
void report_alive();

// Forgets the launcher, for tests.
void parent_pipes_reset();
