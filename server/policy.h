// What the administrator wants: who may register, how often agents check in, and what is checked how.
//
// A policy is text, of the form that docs/tnserver.md tells. The built-in one is read first, the
// administrator's behind it; where both speak of the same thing the later line counts.
#pragma once

#include "server/records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A limit as the policy gives it: a number, or a share of the largest value that the device can have.
struct limit_rule {
    bool off = false;
    double number = 0; // with `share`, 0 to 1
    bool share = false;
    bool bytes = false; // `number` and `at_most` are bytes, whatever unit the device has
    std::optional<double> at_most;
};

// What is wanted of the checks whose plain name matches the pattern. What is not said is left to earlier
// rules.
struct check_rule {
    std::string pattern;
    std::optional<bool> enabled;
    std::optional<int32_t> frequency; // seconds
    std::optional<limit_rule> warn_low, alert_low, warn_high, alert_high;
    std::optional<std::vector<uint32_t>> warn_values, alert_values; // of an enumeration
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
    std::string fingerprint; // changes with every line that means something
};

extern const char *const BUILT_IN_POLICY;

// Reads a text into a policy. Absent, or what is wrong, with the line.
[[nodiscard]] const char *read_policy(const std::string &text, policy *out);

// The built-in policy, and behind it the file at `path` unless that is empty.
[[nodiscard]] const char *load_policy(const std::string &path, policy *out);

// All that the rules say of one check.
check_rule rule_for(const policy &rules, const std::string &check_name);
