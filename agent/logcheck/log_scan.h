// What the agent offers of the host's logs: below the group "log" a group a folder and a check a log, as the
// lines of the file that `log_chk_conf` names describe them, and the empty home of the server's forwarding
// targets.
#pragma once

#include "logcheck/log_match.h"

#include "devtree/devtree.h"

// Reads the file anew. Where that fails, what the last good one said stays in force.
[[nodiscard]] const char *scan_log(devtree *root);

// Adds what the match's lines find at `cwd`, which is empty or ends in a separator, and below it, to the
// group. What there is no memory for is left out; the failure is of the last such thing.
[[nodiscard]] const char *log_scan_level(const char *cwd, devtree *group, const log_match *match);
