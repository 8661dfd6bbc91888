#include "probes/os/rounding.h"

#include <cmath>

int32_t truncated_integer(double value) {
    constexpr double LIMIT = 9223372036854774784.0; // the last one below 2^63
    if (!(std::fabs(value) <= LIMIT)) return 0;
    return static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(value)));
}

int32_t nearest_integer(double value) {
    return truncated_integer(std::floor(value + 0.5));
}
