// The scan of the family `perf`: all that the host's counters offer, as a tree from which a user picks.
#pragma once

#include "devtree/devtree.h"

const char *scan_perfcnts(devtree *root);

// Those of an object's counters that can be opened, the last one first. `counters` is a list of national
// names with an empty one at its end; the instance, which may be absent, is named as the host numbers it.
devnode *retrieve_counters(const char *counters, const char *object, const char *instance);

// The unit of a counter by its name and, where that is known, its type word; absent for none.
const char *counter_unit(const char *name, const uint32_t *type);
