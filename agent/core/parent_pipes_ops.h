// What the launcher's two pipes ask of a host: the handles are the numbers of the command line.
#pragma once

#include <cstdint>

struct waitable;

struct parent_pipe_ops {
    // Waits for the next byte; `*out_count` is 0 where a read brought none. False when the read failed: at
    // the end of the pipe too, and once `stop`, which may be absent, is signalled.
    bool (*ReadFile)(int32_t handle, waitable *stop, uint8_t *out, uint32_t *out_count);
    // False when the write failed. A handle of 0 is none, and fails.
    bool (*WriteFile)(int32_t handle, uint8_t byte, uint32_t *out_count);
};

extern const parent_pipe_ops parent_pipe_ops_host;
extern const parent_pipe_ops *parent_pipe_host;
