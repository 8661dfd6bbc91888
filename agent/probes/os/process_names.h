// The whole names of processes whose names the kernel cuts, remembered while the processes live.
//
// To ask for a whole name takes the lock of the process's memory, and where a thread hangs in the kernel with
// that lock, whoever asks hangs with it. So each process is asked once, and not in an uninterruptible sleep.
//
// The memory goes along with a walk over all processes in the order of their ids: whatever lies between two
// of them has gone, and is dropped.
#pragma once

#include <cstdint>

// A program in a process. What has gone before under the same number began at another time; another program
// in the same process has another stack.
struct process_run {
    uint32_t id;
    uint64_t started; // in steps of the clock since the start of the host
    uint64_t stack;   // where it begins; 0 where the kernel does not tell, which takes the right to look
                      // into the process
};

// Goes on to a process; from the first one again where its id is below that of the one before.
void process_names_turn_to(uint32_t id);
// The end of the walk: what lies behind it has gone, too.
void process_names_end();
void process_names_reset();

// ---- of the process that was turned to

// The whole name that was remembered of this run, if it goes on like the one that the kernel keeps; absent
// where there is none.
const char *remembered_name(const process_run &run, const char *beginning);
// Without memory to be had nothing is remembered.
void remember_name(const process_run &run, const char *whole);
void forget_name();
