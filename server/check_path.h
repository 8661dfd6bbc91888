// The name of a check: the ids of its groups from the top and its own, with points between them.
//
// It is the name that the agent's log uses: "fs./var", "system.idle", "fs.C:\". A point or a backslash in a
// group's id has a backslash before it. In the full name the check's own id is escaped as well, so that no
// two checks share one.
#pragma once

#include <string>
#include <vector>

std::string full_check_name(const std::vector<std::string> &path);
std::string plain_check_name(const std::vector<std::string> &path);

// Whether a name matches a pattern in which '*' stands for any characters. Takes no more than quadratic time.
bool name_matches(const std::string &pattern, const std::string &name);
