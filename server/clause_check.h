// Whether agents can take a rule's clause and a log's separator. An agent that cannot gives up its whole
// configuration, so the server has to know beforehand.
//
// A clause is regular expressions in single quotes, where '' stands for one quote, joined by `not`, `and`,
// `or` and parentheses; "#" begins a comment up to the line's end. The expressions are POSIX extended ones.
#pragma once

#include <string>

// Absent, or what is wrong, with the column (from 1 on, over all lines).
[[nodiscard]] const char *check_clause(const std::string &clause);

// Absent, or what is wrong. A separator that can match nothing at all would hold the agent up for ever.
[[nodiscard]] const char *check_separator(const std::string &separator);
