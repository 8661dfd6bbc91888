// What the kernel counts for one process beside /proc/PID/stat: the files io, statm and status in its folder.
// Each reader takes the next sound record at or behind `*at`, which then moves behind it; false behind the
// last one. The files of several processes may stand behind each other.
#pragma once

#include <cstdint>

// Calls that read and write, and their bytes, to and from files, sockets and all else.
struct task_io {
    uint64_t reads, writes;
    uint64_t read_bytes, written_bytes;
};

// In pages.
struct task_pages {
    uint64_t resident;
    uint64_t shared; // of those, what is a file or shared with others
    uint64_t data;   // private memory that may be written to, touched or not, with the stack
};

// In bytes; 0 where a process has no memory of its own, as those of the kernel.
struct task_memory {
    uint64_t virtual_peak;
    uint64_t resident_peak;
    uint64_t swapped;
};

bool next_task_io(const char **at, task_io *out);
bool next_task_pages(const char **at, task_pages *out);
bool next_task_memory(const char **at, task_memory *out);
