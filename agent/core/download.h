// The thread that fetches an upgrade, on a connection of its own beside the main loop.
#pragma once

#include "settings/settings.h"

#include <cstdint>

// A copy of what the thread needs, since the main thread may replace the originals meanwhile: the current
// server alone, and who the agent is. Absent when memory is out.
agent_config *download_config(const agent_config *config);

// The body. `argument` is such a copy, which stays the caller's. Gives 0 when the upgrade is in place,
// else 1.
uint32_t download_thread(void *argument);

// Fetches the package into the file at `path`. Behind a failure the file stays as it is.
[[nodiscard]] const char *fetch_upgrade(const agent_config *config, const char *path);
