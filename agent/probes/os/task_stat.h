// What the kernel counts for one process: /proc/PID/stat.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t TASK_NAME_SIZE = 80;

// Times are steps of the host's clock rate, the size of what is resident is in pages.
struct task_stat {
    char id[16];
    char name[TASK_NAME_SIZE]; // as the kernel cuts it; a line feed in it is a question mark
    uint64_t parent;
    uint64_t minor_faults, major_faults;
    uint64_t user_time, kernel_time;
    int64_t priority, nice;
    uint64_t threads;
    uint64_t start; // steps since the host was started
    uint64_t virtual_bytes;
    uint64_t resident_pages;
};

// Reads the record that ends ahead of `end`.
bool parse_task_stat(const char *at, const char *end, task_stat *out);

// The next sound record, one a line, at or behind `*at`, which then moves behind it; false behind the last
// one.
bool next_task_stat(const char **at, task_stat *out);
