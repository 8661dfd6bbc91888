// Whether a service of the host runs: the family "scm".
#pragma once

#include "devtree/devtree.h"

// Offers each service of the host with its state as comment. A host without a service manager offers none.
const char *scan_services(devtree *root);

// 1 for a service that runs, 0 for any other state; the comment tells the state. A service that is missing is
// a failure.
const char *check_service(devnode *device, resnode *result);
