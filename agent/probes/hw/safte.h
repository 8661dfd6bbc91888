// Disk slots, fans, power supplies and temperature sensors of SCSI enclosures that speak SAF-TE.
//
// Whether a slot's activation bit means anything differs between enclosures. The setting safte_assume_active
// can say that it never does ("true") or always ("false"); otherwise an enclosure that has once shown an
// active slot is trusted from then on, for the life of the process.
#pragma once

#include "devtree/devtree.h"
#include "probes/hw/scsi.h"

// Offers each enclosure that a walk over the SCSI devices finds. What cannot be probed is told in the log;
// the scan never fails.
const char *scan_safte(devtree *root);

// Reads the part of the enclosure that the device's place in the tree names.
const char *check_safte(devnode *device, resnode *result);

// Reads the 64 bytes of Read Enclosure Configuration.
[[nodiscard]] const char *read_enclosure_config(scsi_dev *device, uint8_t *buffer);

// Forgets the enclosures whose activation bit is trusted, for tests.
void safte_reset();
