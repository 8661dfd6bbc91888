// The description of the host: lines of label and value, gathered once at start and sent as they stand.
//
// A line without value is a heading; a line without label goes on with the item above.
#pragma once

#include "devtree/devtree.h"

// A new list that the caller frees, or absent when memory ran out on the way.
clinfo *collect_host_info();
