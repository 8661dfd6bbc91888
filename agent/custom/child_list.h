// The list of a process's children as a kernel writes it: "12 345 6789 ".
#pragma once

#include <cstdint>

// The next number at `*at`, which moves behind it; 0 behind the last. One without a blank behind it may be
// cut off, and counts for nothing.
int32_t next_child(const char **at);
