// What the administrator wants: who may register, how often agents check in, and what is checked how.
//
// A policy is a TOML document, whose keys docs/tnserver.md tells. The built-in one is read first, the
// administrator's behind it.
#pragma once

#include "server/policy_values.h"
#include "server/records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What is wanted of the checks whose plain name matches the pattern, and whose device was offered with a
// comment that matches the other one, if there is one. What is not said is left to earlier rules.
struct check_rule {
    std::string pattern;
    std::optional<std::string> comment;
    std::optional<bool> enabled;
    std::optional<int32_t> frequency; // seconds
    std::optional<limit_rule> warn_low, alert_low, warn_high, alert_high;
    std::optional<std::vector<uint32_t>> warn_values, alert_values; // of an enumeration
};

// Stands for a silence that is no limit.
inline constexpr int32_t SILENCE_OFF = -1;

// What is wanted of the logs whose path matches the name, or of the forward group of this name. What is not
// said of a log is left to the policy's last entry.
struct log_policy {
    std::string name;
    std::optional<bool> enabled;
    std::optional<int32_t> frequency; // seconds
    std::optional<std::string> separator;
    std::optional<uint32_t> inclusion;
    std::optional<std::vector<log_rule>> rules;
    std::optional<int32_t> warn_silence, alert_silence; // seconds, or SILENCE_OFF
};

struct policy {
    int32_t checkin_frequency = 0; // seconds
    int64_t rescan_s = 0;
    int64_t keep_results_s = 0; // 0 keeps them for ever
    bool accept_new = false;
    bool rekey = false;
    int64_t max_agents = 0;
    int32_t max_downtime_min = 0;
    std::vector<server_address> servers; // for the agents; none leaves them theirs
    std::vector<check_rule> rules;
    std::vector<log_policy> logs;     // the first that matches counts
    std::vector<log_policy> forwards; // rule lists that logs share
    std::string fingerprint;          // changes with every word that means something
};

extern const char *const BUILT_IN_POLICY;

// Reads a document into a policy: its settings and checks count before those that are there, its logs stand
// ahead of them. Absent, or what is wrong, with the line.
[[nodiscard]] const char *read_policy(const std::string &document, policy *out);

// The built-in policy, and behind it the file at `path` unless that is empty.
[[nodiscard]] const char *load_policy(const std::string &path, policy *out);

// All that the rules say of one check, of a device with this comment.
check_rule rule_for(const policy &rules, const std::string &check_name, const std::string &comment = "");

// What is said of the log at this path, see log_path in server/check_path.h. Not enabled where nothing is.
log_policy log_policy_for(const policy &rules, const std::string &path);
