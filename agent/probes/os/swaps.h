// The files and devices to which memory is swapped: /proc/swaps.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr const char *ALL_SWAPS = "_Total";
inline constexpr size_t SWAP_NAME_SIZE = 256;

struct swap_line {
    char name[SWAP_NAME_SIZE]; // as the kernel prints it, blanks as "\040"
    uint64_t size, used;       // kB
};

// The next sound line at or behind `*at`, which then moves behind it; false behind the last one.
bool next_swap_line(const char **at, swap_line *out);

// How much of one is in use, and of what, or of ALL_SWAPS.
bool parse_swap_use(const char *swaps, const char *name, uint64_t *out_used, uint64_t *out_size);
