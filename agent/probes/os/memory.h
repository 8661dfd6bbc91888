// The memory of a host: physical, swap, and both together.
#pragma once

#include "devtree/devtree.h"

struct memory_status;

// Fills the status, length field included. False where the host cannot tell.
bool get_memory_status(memory_status *out);

const char *scan_meminfo(devtree *root);
const char *check_mem(devnode *device, resnode *result);

// Forgets which functions the host has, for tests.
void memory_reset();
