// What a store holds, by family of checks, for people and for a script's exit status.
#pragma once

#include "server/database.h"

#include <cstdint>
#include <string>
#include <vector>

// One family over all agents.
struct family_summary {
    std::string name;
    int64_t offered = 0;     // devices
    int64_t checks = 0;      // configured at present
    int64_t results[4] = {}; // by status

    int64_t valid_results() const { return results[0] + results[1] + results[2]; }
};

// An order of an action, with the times of its steps; 0 for those that are still to come.
struct order_summary {
    std::string agent, action;
    int64_t ordered_at = 0, sent_at = 0, taken_at = 0, pruned_at = 0;
};

struct store_summary {
    int64_t agents = 0;
    int64_t first_result = 0, last_result = 0; // when they arrived, 0 for never
    std::vector<family_summary> families;      // by name
    std::vector<std::string> silent_checks;    // configured ones without any result
    std::vector<order_summary> orders;         // the latest
};

[[nodiscard]] const char *summarize(database &store, store_summary *out);

// The lines to print.
std::string summary_text(const store_summary &summary);

// The families that are required, and of the configured ones all, that have no result of status 0 to 2. With
// no agent at all there is nothing to be content with: the list then holds a word for that.
std::vector<std::string> unsatisfied(const store_summary &summary, const std::vector<std::string> &required);
