// One level of the scan for logs: which names there are for what the lines ask for.
#pragma once

#include "logcheck/log_match.h"

// Looks at the first part of each of the match's lines. A plain name is taken as it stands; a wildcard lists
// the folder `cwd`, which is empty or ends in a separator, or the host's event logs.
void find_log_matches(const char *cwd, const log_match *match, log_match_list *found);
