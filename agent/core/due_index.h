// The devices of the active tree by due time, so that finding the next one costs the logarithm of their
// number.
//
// It gives what find_next_due gives: the earliest, and the first one of the walk among equals. The due time
// of a device may be changed between two calls only for the device that was handed out last; anything else
// wants a rebuild.
#pragma once

#include "devtree/devtree.h"

// Has the next due_index_next take the devices of the tree in, with the times that they have then. So the
// device that was handed out last may get a new time behind this, too. Without the memory for it,
// due_index_next walks the tree.
void due_index_rebuild(devtree *tree);

// The device that is due next, or absent.
devnode *due_index_next();

// Frees the index.
void due_index_clear();
