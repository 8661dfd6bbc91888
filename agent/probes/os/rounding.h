// The integers of a result, cut out of reals that may be larger than they can hold.
#pragma once

#include <cstdint>

// The low 32 bits of the whole part; 0 for what 64 bits cannot hold either.
int32_t truncated_integer(double value);

// The low 32 bits of floor(value + 0.5).
int32_t nearest_integer(double value);
