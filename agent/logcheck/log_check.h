// The check of a log, the row "log" of the families: reads what is new in the log that the check stands for
// and hands each entry to its rules.
#pragma once

#include "devtree/devtree.h"

// Whether a check-in is due, so that a long log is left for the next check. Never, until it is set.
extern bool (*checkin_overdue_hook)();

// `result` is absent: what there is to report goes to the queue of the check itself.
[[nodiscard]] const char *check_log(devnode *device, resnode *result);
