// AgentActions: programs of the administrator that the server can order to start.
#pragma once

#include "devtree/devtree.h"

// Reads the file of actions and offers what it describes. Always absent.
const char *scan_action(devtree *root);

// Starts the action. A failure to start stands in the result and in the log.
const char *check_action(devnode *device, resnode *result);

// Starts a program, and leaves it to itself.
[[nodiscard]] const char *start_action(const char *name, const char *command);

// Frees the actions, for tests.
void action_reset();
