// The kernel's way to list processors: "0-3,8,10-11".
#pragma once

#include <cstdint>

// How many processors the list names; `*out_mask` has bit i for processor i, of the first 64.
uint32_t parse_processor_list(const char *text, uint64_t *out_mask);
