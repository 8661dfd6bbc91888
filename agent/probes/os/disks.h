// The family `block`: activity of the physical disks.
#pragma once

#include "devtree/devtree.h"

#include <cstddef>

const char *scan_block_devices(devtree *tree);
const char *check_block(devnode *device, resnode *result);

inline constexpr size_t DISK_INSTANCE_SIZE = 512;

// Walks the host's disks. With a tree it offers them. With a number it looks for the disk of that number and
// writes the name of its instance, which holds its drive letters and changes with them, to `instance`,
// leaving it alone where there is none; the walk ends there. Either may be absent.
const char *scan_block_devices(devtree *tree, const char *number, char *instance);
