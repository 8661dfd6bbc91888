// The reader of the host's event logs: the records since the last check, one line of text each.
//
//   Information:source:category:event id, low 16 bits:user:computer:message
//
// A failure to find a record's message stands in the line in angle brackets, where rules can see it. A record
// whose message cannot be decoded is counted, and no rule sees it.
//
// A record whose length cannot be is passed over, with what the host delivered behind it in the same read:
// the check ends there, and the next one goes on with the record behind it.
#pragma once

#include "devtree/devtree.h"

// A host could answer reads with nothing for ever. As many such answers in a row, which no sound host gives,
// end the check.
inline constexpr uint32_t EMPTY_READ_LIMIT = 1'000;

// A record that asks for a larger buffer counts as one for which memory is out. No host lets a program read
// as much at once.
inline constexpr uint32_t READ_BUFFER_LIMIT = 64 << 20;

// Reads what is new in the log that is named by the check's id, and walks each line through its rules. Where
// the host has no event logs, that is the failure. Otherwise the position is moved on, in the state that the
// check has by then; a first check takes it from the variables, and a log that is new to the host is followed
// from its end. With a failure the position is as it was, and the next check reads the same again; a log that
// fails at its first check is read whole by the next one, since its position is still 0.
[[nodiscard]] const char *read_event_log(devnode *device, bool first_check);
