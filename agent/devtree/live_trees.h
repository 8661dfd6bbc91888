// The three live structures of the agent. The main loop decides about them and frees them.
#pragma once

#include "devtree/devtree.h"

extern devtree *active_tree; // as last configured by the server
extern devtree *action_tree; // what the server has ordered and has not been pruned yet
extern clinfo *host_info;    // built once at start
