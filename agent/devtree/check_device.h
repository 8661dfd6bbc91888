// One check: from the family's raw reading to a queued result with a status.
#pragma once

#include "devtree/devtree.h"

// Runs the check. Returns a result to be queued, which the caller owns, or absent.
resnode *check_device(devnode *device);

// Runs the check, queues its result and drops what is too old.
void run_check(devnode *device);
