// The configure exchange: the agent tells which build it is and what it can monitor, the server answers with
// what to monitor and where to go.
#pragma once

#include "devtree/devtree.h"
#include "platform/io.h"
#include "settings/settings.h"

// Runs on an authenticated stream, which the caller closes. With `scan` the agent shows its devices.
[[nodiscard]] const char *configure_exchange(io *stream, agent_config *config, bool scan);

// Resolves the destinations of log rules, called when the server has sent both groups. Harmless while unset.
extern void (*log_rule_resolve_hook)(devtree *log_group, devtree *forward_group);

// Puts the process-wide state of the exchanges back to that of a new process, for tests.
void configure_reset();
