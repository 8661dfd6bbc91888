// The families `ifthrough` and `ifevents`: traffic and packets of the network interfaces. One scan offers
// both.
#pragma once

#include "devtree/devtree.h"

const char *scan_ifthroughput(devtree *root);
const char *check_ifthrough(devnode *device, resnode *result);
