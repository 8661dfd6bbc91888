// The reader of one growing text file: whether it is still the file of the last check, what is new in it, and
// the records that a separator cuts it into.
//
// A record is made in place, by a zero byte over the one behind it, and is never copied. A record longer than
// the buffer is split. The last record, which has no separator yet, is held back until a check finds the file
// as it was.
//
// A separator that matches the empty string where the search starts would be found there for ever. Such a
// match counts as none for the rest of the bytes at hand.
#pragma once

#include "logcheck/log_state.h"

inline constexpr size_t LOG_BUFFER_SIZE = 16'384;

// Reads what is new at `path`, whose check is `device`, and hands each record to its rules. A first check
// takes the state from the variables, and a log that is new to the host is followed from its end. With a
// failure the state is as it was, and the next check reads the same again.
[[nodiscard]] const char *follow_log_file(const char *path, devnode *device, log_state *state,
                                          bool first_check);
