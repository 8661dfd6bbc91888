// The state of the chassis, five faults that a BMC reports apart from its sensors.
#pragma once

#include "devtree/devtree.h"

inline constexpr const char *CHASSIS_GROUP = "chassisstatus";

// Asks the BMC and adds the group of the faults below `group`. Where the BMC has no answer, the log says why,
// and nothing is added; the only failure is that memory is out.
[[nodiscard]] const char *scan_chassis_status(devtree *group);

// Fills the result for the fault that the device's id names. An unknown one leaves it empty.
[[nodiscard]] const char *check_chassis_status(devnode *device, resnode *result);
