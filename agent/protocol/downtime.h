// The downtime request.
#pragma once

#include "platform/io.h"

#include <cstddef>
#include <cstdint>

// The reply does not fit. Behind any other failure the stream is closed.
inline constexpr char MESSAGE_TOO_BIG[] = "message too big";

// Asks for downtime and writes "OK" or "FAILURE", a blank and the server's message into `text`. A failure of
// the exchange closes the stream; otherwise it stays open, also where the message is too big.
[[nodiscard]] const char *request_downtime(io *stream, int32_t minutes, char *text, size_t size);
