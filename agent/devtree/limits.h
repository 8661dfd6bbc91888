// What the server's thresholds make of a reading.
#pragma once

#include "devtree/devtree.h"

// The status by the device's limits: STATUS_GOOD, STATUS_WARNING or STATUS_ALERT. A limit takes part when it
// is 0 or above, all comparisons are strict, and an alert overrides a warning.
uint32_t evaluate_limits(const devnode *device, const resnode *result);
