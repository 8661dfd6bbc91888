// The health verdict of each physical drive that answers SMART commands: no attribute is reported by itself.
//
// The setting disable_smart turns the scan and the checks off. A check opens its drive and closes it again;
// no state stays behind.
#pragma once

#include "devtree/devtree.h"
#include "probes/hw/smart_ops.h"

// Offers each capable drive, the latest first. The walk over the numbers ends at the first drive that cannot
// be opened; one that cannot be enabled is passed over.
const char *scan_smart_ide(devtree *root);

// Judges the drive that the device's id names. A drive that answers neither reads nor the status command is
// about to fail: that is a verdict, not a failed check.
const char *check_smart(devnode *device, resnode *result);

// The commands, on an open drive. A read gives a new reply of SMART_REPLY_SIZE bytes, which the caller frees.
[[nodiscard]] const char *smart_enable(smart_drive *drive);
[[nodiscard]] const char *smart_read_values(smart_drive *drive, uint8_t **out);
[[nodiscard]] const char *smart_read_thresholds(smart_drive *drive, uint8_t **out);
// Whether the drive answers at all; its registers are not looked at.
bool smart_return_status(smart_drive *drive);
