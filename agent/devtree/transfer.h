// What moves from an old tree to a new one, and what leaves the tree of actions.
#pragma once

#include "devtree/devtree.h"

// Moves queues and check states of the old groups at this level to the devices of equal path in the new ones.
// The old tree can be freed behind it. Due times are not carried: every check of a new tree is due at once.
void transfer_state(devtree *old_list, devtree *new_list);

// Whether a device of the action tree is done with, as prune_ran_actions is told.
using prune_test = bool (*)(const devnode *device);

// An action that has run and holds no result. The pruning is handed this test and does not apply it.
bool action_is_delivered(const devnode *device);

// Removes and frees every action that has run, that is with `next_check` not 0, and the groups that this
// empties.
void prune_ran_actions(devtree **link, prune_test test = action_is_delivered);
