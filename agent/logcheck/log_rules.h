// The walk of a log entry through rules: the first rule whose clause matches reports the entry, drops it, or
// sends it through the rules of another log check.
//
// The checks below "/forward" have no log of their own: they hold rules that several logs share.
#pragma once

#include "devtree/devtree.h"

// On the way from the walk's start to the check at hand, the nearest one first. Lives as long as the calls.
struct walk_link {
    const devnode *device;
    const walk_link *previous;
    uint32_t depth; // of the walks on the way, 1 for the first
};

// A server could let one entry wander without end, or deeper than the stack reaches. Behind as many walks, or
// at such a depth, which no sound set of rules comes near, a target counts as missing.
inline constexpr uint32_t WALK_LIMIT = 65'536; // for one entry
inline constexpr uint32_t WALK_DEPTH_LIMIT = 1'000;

// Whether the entry was handled: a rule ended the walk, or the entry came back to a check on its way. The
// entry is neither changed nor kept; `chain` is absent at the start.
bool log_rule_walk(const char *entry, devnode *device, const walk_link *chain);

// The same from the start, for a reader of entries.
bool log_entry_walk(const char *entry, devnode *device);

// Whether a match of the rule leaves no trace: quiet about a good status.
bool rule_is_silent(const logrule *rule);

// Finds the target of every rule that forwards, below the whole log group.
void log_rule_resolve(devtree *log_group, devtree *forward_group);
