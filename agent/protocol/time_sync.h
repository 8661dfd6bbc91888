// The offset between the agent's clock and the server's.
#pragma once

#include "platform/io.h"

#include <cstdint>

// Seconds that the local clock is ahead of the server's. Applied on the wire only, never in a queue.
extern int64_t time_offset;

// Measures the offset. On failure it keeps its value, and the stream is closed.
[[nodiscard]] const char *sync_server_time(io *stream);
