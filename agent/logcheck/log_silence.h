// The watch over logs that say nothing for too long.
//
// Two variables a log are kept: the time of its last activity, and the last silence status told to the
// server.
#pragma once

#include "devtree/devtree.h"

#include <cstdint>

// Appends a result to the device when its silence has reached another limit. Runs behind every check of a
// log.
void log_silence_evaluate(devnode *device, int64_t now);

// Missing variables give the present time and 0.
void log_silence_read(const devnode *device, int64_t *out_timestamp, int32_t *out_status_sent);

// Stores both.
void log_silence_reset(const devnode *device, int64_t timestamp, int32_t status);
