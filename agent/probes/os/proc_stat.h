// What the kernel counts for its processors: /proc/stat and /proc/interrupts.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr const char *ALL_PROCESSORS = "_Total";
inline constexpr size_t PROCESSOR_NAME_SIZE = 16;

// Times since the start in clock ticks. Time given to guests is part of `user` and `nice`.
struct processor_times {
    uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
};

// All of the time; the idle share of it, waiting for a disk included; the shares of the kernel and of
// programs. A sum wraps where the kernel printed a counter that had fallen below zero.
uint64_t total_time(const processor_times &times);
uint64_t idle_time(const processor_times &times);
uint64_t kernel_time(const processor_times &times);
uint64_t program_time(const processor_times &times);
uint64_t interrupt_time(const processor_times &times);
uint64_t soft_interrupt_time(const processor_times &times);

// The times of one processor by its number ("0"), or of ALL_PROCESSORS, out of /proc/stat. Kernels that know
// fewer kinds of time leave the last ones 0.
bool parse_processor_times(const char *stat, const char *processor, processor_times *out);

// The name of the processor whose line is next at or behind `*at`, which then moves behind it; false behind
// the last one. `*at` starts at the head of /proc/stat.
bool next_processor(const char **at, char out[PROCESSOR_NAME_SIZE]);
uint32_t count_processors(const char *stat);

// The interrupts that one processor has served, out of /proc/interrupts. Rows that do not count by processor
// are left out.
bool parse_processor_interrupts(const char *interrupts, const char *processor, uint64_t *out);

// Whether that table counts for this processor, by its headline alone.
bool has_processor_column(const char *interrupts, const char *processor);
