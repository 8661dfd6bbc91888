// All rules of a log check in one pass over an entry, and in one pass over many records: what no rule reports
// costs a table look-up a byte.
//
// No answer changes by it. Where the index cannot tell, because an expression is left to the engine or the
// pass does not pay, the engine runs for each rule as it would without.
#pragma once

#include "devtree/devtree.h"
#include "platform/regex_set.h"

#include <cstddef>

// What was found out about one entry, good until the rules are freed.
struct rule_findings {
    const char *entry;
    const rule_index *index; // absent where the engine decides
    uint64_t bits[16];
};

void find_rules(const char *entry, lognode *node, rule_findings *out);

// Whether the clause of a rule of that check holds for the entry.
bool rule_holds(const rule_findings *findings, const logrule *rule);

// Passes over the records from `at`, the start of one, to `end`, right behind a separator of one byte. Writes
// the places, as distances from `at`, of the separators behind those that a rule may have something to say
// about, and returns their count: RECORDS_NOT_KNOWN where the engine has to look at each record.
uint32_t find_reported_records(lognode *node, const char *at, const char *end, bool behind_separator,
                               uint16_t *out);
