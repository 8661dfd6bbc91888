// Trees of checks in any size, shaped like those that a server sends.
#pragma once

#include "devtree/devtree.h"

// A top-level group with this id, below it groups of twenty checks each, `count` checks in all, due one a
// second and each once a minute.
devtree_guard make_tree(const char *id, uint32_t count);

// Queues `each` results at every check of the tree.
void queue_results(devtree *tree, uint32_t each);

// Calls `act` for each check, in the order of the tree.
template <class Act>
void each_check(devtree *group, const Act &act) {
    for (; group != nullptr; group = group->next) {
        for (devnode *device = group->devices; device != nullptr; device = device->next)
            act(device);
        each_check(group->children, act);
    }
}
