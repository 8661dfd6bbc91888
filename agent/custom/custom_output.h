// The value in what a custom check's program writes, line by line, and the outcome of a run.
#pragma once

#include "custom/conf_files.h"
#include "devtree/devtree.h"

#include <cstddef>
#include <cstdint>

// Characters of output that wait for their line's end. A value must come within a line that is shorter.
inline constexpr size_t OUTPUT_SIZE = 256;

struct custom_reading {
    uint32_t value_found;
    uint64_t value_integer;
    double value_real;
};

// Takes the whole lines out of `buffer`, which holds everything up to `*end` that is not consumed yet and has
// room for OUTPUT_SIZE characters and one behind them. What remains moves to its start.
[[nodiscard]] const char *process_output(const custom_check *check, char *buffer, char **end,
                                         custom_reading *reading);

// Makes a result of what was gathered: absent, CHECK_NO_RESULT or a failure text.
[[nodiscard]] const char *custom_result(resnode *result, custom_check *check, const custom_reading *reading,
                                        uint32_t exit_code);
