// The age at which undelivered results are dropped.
#pragma once

#include "devtree/devtree.h"

// Drops results from the head of the queue that are older than max_data_retention_days. A younger one ahead
// of an older one stops it.
void discard_old_results(devnode *device);

// Forgets when it last discarded, for tests.
void retention_reset();
