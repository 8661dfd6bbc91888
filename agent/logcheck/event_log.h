// The reader of the host's event logs: the records since the last check, one line of text each.
//
//   Information:source:category:event id, low 16 bits:user:computer:message
//
// A failure to find a record's message stands in the line in angle brackets, where rules can see it.
#pragma once

#include "devtree/devtree.h"

// Reads what is new in the log that is named by the check's id, and walks each line through its rules. Where
// the host has no event logs, that is the failure. Otherwise the position is moved on, in the state that the
// check has by then; a first check takes it from the variables.
[[nodiscard]] const char *read_event_log(devnode *device, bool first_check);
