// The clause language of log rules: regular expressions in single quotes, joined by not, and, or and
// parentheses.
//
// A clause is compiled once, into a tree that is then evaluated against each log entry.
#pragma once

#include "platform/heap.h"
#include "platform/regex.h"

#include <cstdint>

enum : uint32_t { COND_REGEX = 1, COND_NOT = 2, COND_AND = 3, COND_OR = 4 };

// A node owns what lies below it.
struct log_check_cond {
    uint32_t type;
    tn_regex regex;        // COND_REGEX
    uint32_t number;       // COND_REGEX: for who runs many expressions together
    log_check_cond *child; // COND_NOT
    log_check_cond *left;  // COND_AND, COND_OR
    log_check_cond *right;
};

// Compiles `text` into the tree in `*slot`, which is the caller's even where the parse failed. Returns
// absent, or "line %u column %u: %s".
[[nodiscard]] const char *log_clause_parse(const char *text, log_check_cond **slot);

bool log_clause_match(const char *entry, const log_check_cond *cond);

// Takes absent, and the empty slots that a failed parse leaves.
void log_clause_free(log_check_cond *cond);

using log_clause_guard = guard<log_check_cond, log_clause_free>;
