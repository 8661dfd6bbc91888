// Rotation of the log by age, which keeps an agent that runs for years from filling a disk.
#pragma once

#include <atomic>
#include <cstdint>

// The log is to be rotated and re-opened at the next check. May be set by a signal.
extern std::atomic<int32_t> reopen_log_flag;

// Rotates and re-opens the log when it is too old or the flag is set. On the console the flag stays set and
// nothing else happens.
void log_check_rotate();

// Renames the log to its first old name, "%s.%i.txt" with 1, and each old log to the next number up to
// `count`.
[[nodiscard]] const char *rotate_logs(const char *path, int32_t count);

// Forgets the log's age, for tests.
void log_rotation_reset();
