// The hallmark: how both sides come to it, and how they prove that they know it.
#pragma once

#include "platform/io.h"

#include <atomic>
#include <cstdint>

extern std::atomic<int32_t> hallmark_retries;        // failed challenge reads in a row
extern std::atomic<int32_t> server_protocol_version; // of the last accepted negotiation

// The hallmark, the cipher stream in the place of the plain one, and the mutual challenge.
[[nodiscard]] const char *hallmark_negotiate(io **stream, bool server_has_master_key,
                                             bool server_has_hallmark);

void hallmark_reset();
