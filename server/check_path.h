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

// Whether a check is a log or a forward group of logs.
bool is_log(const std::vector<std::string> &path);
// The path of a log as people write it: "/var/log/syslog", "C:\logs\app.log", "eventlog/System". A forward
// group is "/forward/NAME".
std::string log_path(const std::vector<std::string> &path);

// Whether a log's path matches a pattern in which '*' stands for any characters, slashes included. Upper and
// lower case are the same but in paths that begin with a slash.
bool log_path_matches(const std::string &pattern, const std::string &path);
