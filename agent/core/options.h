// The options of the command line.
#pragma once

#include "core/start_flags.h"

// Fills `*out` and the start-up flags. A version print, an unknown option and a missing value end the process
// with status 0.
void parse_options(int argc, char **argv, command_line *out);

// Writes to stderr, whatever the log does.
void print_on_stderr(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Puts the flags back to those of a new process, for tests.
void options_reset();
