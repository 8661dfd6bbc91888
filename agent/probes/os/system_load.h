// Load figures of the whole host: idle time, context switches, uptime.
#pragma once

#include "devtree/devtree.h"

const char *scan_system(devtree *root);
const char *check_system(devnode *device, resnode *result);
