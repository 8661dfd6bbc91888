// The agent's log: one line of text to one stream, with a threshold. The stream starts as stderr.
//
// A line is the local time in the 24 characters of ctime, ": ", the message and a line feed. It is handed to
// the host in one piece when it is written.
#pragma once

#include "platform/files.h"

#include <cstdint>

enum : int32_t { LOG_TRACE = -1, LOG_DETAIL = 0, LOG_NORMAL = 1, LOG_WARNING = 2, LOG_ERROR = 3 };

// A level below the threshold costs one comparison: no time is read and no text is formatted.
void agent_log(int32_t level, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Whether a line of this level is written anywhere.
bool log_shows(int32_t level);

// Makes stderr the stream and returns the previous one.
host_file log_to_stderr();

// Opens `path` for appending and makes it the stream. Returns the stream, or NO_FILE when that failed; the
// log is silent until the next attempt.
host_file log_open(const char *path);

// Does nothing on the console. Otherwise says so, closes the file and leaves the log without a stream.
void log_close();

void log_set_level(int32_t level);
bool log_is_console();

// The open stream, or NO_FILE.
host_file log_stream();

// Tests are told here each line that reaches the threshold, the time left out.
extern void (*agent_log_observer)(int32_t level, const char *message);

// Puts stream and threshold back to those of a new process, for tests.
void log_reset();
