// Followed logs in a simulation: what the server orders for them, and what has come of their lines.
#pragma once

#include "wire/scripted_server.h"

// What a rule does with an entry, as it goes over the wire.
inline constexpr uint32_t REPORT = 0;
inline constexpr uint32_t QUIET = 1;
inline constexpr uint32_t MOVE = 2;
inline constexpr uint32_t COPY = 3;
inline constexpr uint32_t CALL = 4;

inline const wire::rule REPORT_ALL = {.regex = "'.'", .status = 1, .decision = REPORT};

// The check of the log at an absolute path, whose entries are its lines.
wire::check followed_log(const std::string &path, int32_t period_s, std::vector<wire::rule> rules);

// A check that takes forwarded entries, under the name by which rules send them.
wire::check forward_target(const std::string &name, std::vector<wire::rule> rules);

// The tree of these.
std::vector<wire::group> log_tree(std::vector<wire::check> logs, std::vector<wire::check> targets = {});

// The entries that have come for the log at this path, or for a target, with all repetitions, in their order.
std::vector<std::string> entries_of(const scripted_server &server, const std::string &path);
std::vector<std::string> entries_at(const scripted_server &server, const std::string &target);

// The results behind them, those without a text left out.
std::vector<wire::result> log_results(const scripted_server &server, const std::string &path);

// "NAME 3\nNAME 4\n" for 3 and 2.
std::string numbered_lines(const std::string &name, int first, int count);
std::vector<std::string> numbered_entries(const std::string &name, int first, int count);
