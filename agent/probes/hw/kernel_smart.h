// The SMART operations of a host with a Linux kernel (smart_ops.h has their contract).
//
// A drive's number is its place among the whole disks with a device below them, sorted by name. Only an ATA
// drive is opened as a device; of any other the kind is told, and nothing is sent to it.
//
// A drive that sleeps stays asleep. What each drive has answered last is kept: the two tables, and whether it
// took the other commands. Ahead of a command that it has answered before, the kernel is asked whether it has
// suspended the drive, and the drive for its power mode, which it tells without waking; while it sleeps, the
// kept answer counts. A command that it has never answered is sent. A drive in the deeper mode that only a
// reset ends cannot be told from one that is awake.
//
// The memory of a drive lasts as long as the process, or until another disk has its name.
#pragma once

#include "probes/hw/smart_ops.h"

smart_drive *kernel_smart_open(const char *path, uint32_t access);
int32_t kernel_smart_control(smart_drive *drive, uint32_t control, const uint8_t *input, uint32_t input_size,
                             uint8_t *output, uint32_t output_size);
void kernel_smart_close(smart_drive *drive);
const char *kernel_smart_foreign_kind(const smart_drive *drive);

// Forgets what drives have answered, for tests.
void kernel_smart_reset();
