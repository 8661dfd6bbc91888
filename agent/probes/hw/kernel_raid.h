// The RAID operations of a host with a Linux kernel (raid_ops.h has their contract).
//
// Ports are those of the SCSI operations. Whoever opens them in ascending order finds the hosts that there
// were at the first one: the kernel is asked once for all of them. Only a host whose driver speaks CISS is
// opened, by the generic node of its first device, whichever that is: a request goes to the controller
// itself. It goes there as it is, with its own command block; the status of the command is the return code,
// and less data than there is room for is no failure.
//
// A controller refuses to identify a volume that it does not have; that is answered by an empty reply, which
// says the same.
#pragma once

#include "probes/hw/raid_ops.h"

raid_adapter *kernel_raid_open(const char *path, uint32_t access);
bool kernel_raid_control(raid_adapter *adapter, uint32_t control, uint8_t *block, uint32_t size);
void kernel_raid_close(raid_adapter *adapter);
// The next port begins a walk, whichever it is.
void kernel_raid_reset();

// Whether a driver of this name takes CISS commands.
bool driver_speaks_ciss(const char *driver);
