// The fixed volumes of a host: the drives and what is mounted on them.
#pragma once

#include "devtree/devtree.h"

// Offers each fixed volume under its path. The list is in reverse order of finding.
const char *scan_mounts(devtree *root);

// Measures the free space at the path that the device's id is, in kB.
const char *check_fs(devnode *device, resnode *result);

// Forgets which functions the host has, for tests.
void drives_reset();
