// Many expressions in one pass over a text: which of them occur in it.
//
// A deterministic automaton that is made while it runs: a state is made when a text first leads to it, and
// costs one table look-up a byte from then on. The states of all sets together have a budget; a set that
// needs more starts anew with what it has, and one that would go on so is given up, so that the engine
// decides.
//
// Records that a single byte separates are passed over many at a time: only one about which the owner wants
// to know stops the run.
#pragma once

#include "platform/regex.h"

#include <cstddef>
#include <cstdint>

struct regex_set;

inline constexpr uint32_t REGEX_SET_LIMIT = 1'024; // expressions

// The bits of a set, bit n for expression n. A bit that is not set is a no; one that is set is a yes where
// the expression is exact, and otherwise a perhaps.
using regex_bits = const uint64_t *;

inline bool regex_bit(regex_bits bits, uint32_t number) {
    return (bits[number >> 6] >> (number & 63) & 1) != 0;
}

// How records are cut.
enum record_separator : uint32_t { SEPARATOR_CLOSES, SEPARATOR_OPENS, SEPARATOR_DROPPED };

struct record_cut {
    uint8_t separator;
    record_separator place;
};

// Whether a record with these bits is to be told.
using record_wish = bool (*)(void *owner, regex_bits bits);

// Absent where one of the expressions is left to the engine, and when memory is out. The expressions are not
// needed behind the call. Where records are not cut at one byte, `cut` is absent.
regex_set *regex_set_new(const tn_regex *const *regexes, uint32_t count, const record_cut *cut,
                         record_wish wish, void *owner);
void regex_set_free(regex_set *set); // takes absent

// Whether a set bit of this expression is a yes.
bool regex_set_is_exact(const regex_set *set, uint32_t number);

// The bits for a text, valid until the next call; absent when the set was given up.
regex_bits regex_set_match(regex_set *set, const char *text);

inline constexpr uint32_t RECORDS_NOT_KNOWN = UINT32_MAX;
inline constexpr size_t RUN_LIMIT = UINT16_MAX; // bytes that one run takes

// Runs over the records from `at`, the start of one, to `end`, right behind a separator. `behind_separator`
// tells that the separator ahead of `at`, which must be there, belongs to the first record. Writes the places
// of the separators that end wanted records, as distances from `at`, ascending, and returns their count;
// there is room for half as many as there are bytes, and RUN_SLACK more. RECORDS_NOT_KNOWN when the set was
// given up.
inline constexpr uint32_t RUN_SLACK = 4;
uint32_t regex_set_run(regex_set *set, const char *at, const char *end, bool behind_separator, uint16_t *out);
