// A pattern as a nondeterministic automaton, which answers the one question whether the pattern occurs in a
// text.
//
// An automaton of another pattern that says yes more often is made where the exact one cannot be: what a
// group has matched counts as any text; an assertion inside a repetition, a start that something may stand
// before and an end that something may follow count as true. A yes is then a perhaps, which the engine has to
// confirm; a no is a no.
#pragma once

#include "platform/regex_tree.h"

enum program_op : uint8_t {
    OP_BYTES,  // takes one byte of `set`, then `out`
    OP_SPLIT,  // `out` or `other`
    OP_ASSERT, // `out`, where `assertion` holds
    OP_FOUND,
};

struct program_step {
    program_op op;
    regex_assertion assertion;
    uint16_t set;
    uint16_t out, other;
};

struct regex_program {
    program_step *steps;
    byte_set *sets;
    uint32_t step_count, set_count;
    uint16_t start;
    bool exact;
};

// Absent for a pattern that is left to the engine, for one whose repetitions make it too long, and when
// memory is out. The caller frees it.
regex_program *regex_program_new(const char *pattern);

void regex_program_free(regex_program *program); // takes absent
