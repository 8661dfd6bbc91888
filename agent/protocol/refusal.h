// The server's refusal to go on, whose words are the failure of the exchange.
#pragma once

#include "platform/io.h"

#include <cstdint>

// Reads a negotiate_nack and fails with its reason, which stays until the next refusal on this thread.
[[nodiscard]] const char *read_refusal(io *stream, uint32_t tag);
