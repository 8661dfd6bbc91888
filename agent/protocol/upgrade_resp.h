// The reply to upgrade_req, read straight into a file.
#pragma once

#include "platform/files.h"
#include "platform/io.h"

#include <cstdint>

inline constexpr uint32_t UPGRADE_LIMIT = 10485760; // bytes

// Writes the package into the file, piece by piece. The integer ahead of it has no use.
[[nodiscard]] const char *read_upgrade_resp(io *stream, host_file file, int32_t *out);
