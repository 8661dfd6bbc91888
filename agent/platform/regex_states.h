// The automaton behind a set of expressions: states that are made when a text first leads to them.
//
// A state is the set of places that the expressions may have reached, with those that were found already,
// which stay found and take no more place. What stands ahead of the next byte is part of it where an
// assertion asks.
#pragma once

#include "platform/regex_program.h"
#include "platform/regex_set.h"

// The value of a transition: the next state, with its bits above it.
inline constexpr uint32_t IS_SPECIAL = 1U << 31; // stops a run
inline constexpr uint32_t IS_WANTED = 1U << 30;  // the end of a record that is to be told
inline constexpr uint32_t NOT_MADE = IS_SPECIAL;

struct regex_state {
    uint32_t key_at;
    uint32_t key_length;
    bool end_known;
};

struct regex_states {
    // what runs
    program_step *steps;
    uint16_t *owner_of; // the expression of a step
    byte_set *sets;
    uint16_t *starts;
    uint64_t *exact; // bits
    uint32_t step_count, set_count, count, words;
    bool sees_words; // an assertion asks for them

    // bytes that no expression tells apart are one class; behind them is the class of a record's end
    uint8_t class_of[256];
    uint8_t run_class_of[256]; // the same, with the separator as a record's end
    uint8_t sample[256];
    uint32_t class_count, stride;

    // how records end
    const record_cut *cut; // absent where they are not cut at a byte
    record_cut cut_held;
    record_wish wish;
    void *wish_owner;

    // the states; each is named by its place in `next`
    uint32_t *next;
    regex_state *states;
    uint64_t *ends; // the bits for a text that ends in the state
    uint32_t *table;
    uint16_t *keys;
    uint32_t state_count, state_room, key_count, key_room;
    uint32_t epoch;  // counts how often the states were dropped
    uint32_t behind; // the state behind a separator that belongs to the next record

    // scratch
    uint32_t *marks;
    uint32_t generation;
    uint16_t *stack, *taking, *key;
    uint64_t *found;

    // how well it pays
    uint64_t made, run; // transitions made and bytes passed since the states were last dropped
    uint32_t failures;
    bool given_up;

    // all sets, the last used first
    regex_states *newer, *older;
    size_t bytes;
};

// Joins the programs. False when memory is out; the caller frees in both cases.
bool regex_states_build(regex_states *states, regex_program *const *programs, uint32_t count);
void regex_states_free(regex_states *states);

// Makes this the set that was used last, with its first state. False when memory is out.
bool regex_states_use(regex_states *states);

// Makes a transition and returns its value; NOT_MADE when the set was given up. In a new epoch only
// the state that it returns is known.
uint32_t regex_states_make(regex_states *states, uint32_t state, uint32_t class_number);

// The bits for a text that ends in this state.
regex_bits regex_states_end(regex_states *states, uint32_t state);
