#include "platform/regex_states.h"

#include "platform/heap.h"

#include <algorithm>
#include <cstring>

namespace {

// What stands at the head of a state's key; the found expressions and the places follow.
enum : uint16_t { AT_TEXT_START = 1, BEHIND_WORD = 2, BEHIND_SEPARATOR = 4 };

enum following : uint8_t { WORD_BYTE, OTHER_BYTE, TEXT_END };

constexpr uint32_t FIRST_ROOM = 32;
constexpr uint32_t ROOM_LIMIT = 16'384;     // states of one set
constexpr size_t SET_BUDGET = 1'536 * 1024; // bytes of the states of one set
constexpr size_t ALL_BUDGET = 6'144 * 1024; // of all together
constexpr uint32_t NEW_STATES = 4;          // that one transition may make
constexpr uint64_t BYTES_A_TRANSITION = 60; // that must be passed for each one made, else it does not pay
constexpr uint32_t FAILURE_LIMIT = 3;

regex_states *last_used;
size_t bytes_of_all;

} // namespace

static bool is_word_byte(uint8_t c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// ---- the joined program

static void join_program(regex_states *states, const regex_program *program, uint32_t number) {
    uint32_t first_step = states->step_count, first_set = states->set_count;
    auto shifted = [first_step](uint16_t step) { return static_cast<uint16_t>(step + first_step); };
    for (uint32_t i = 0; i < program->step_count; i++) {
        program_step step = program->steps[i];
        step.out = shifted(step.out);
        step.other = shifted(step.other);
        step.set = static_cast<uint16_t>(step.set + first_set);
        if (step.op == OP_ASSERT && step.assertion >= WORD_START) states->sees_words = true;
        states->steps[first_step + i] = step;
        states->owner_of[first_step + i] = static_cast<uint16_t>(number);
    }
    std::copy_n(program->sets, program->set_count, states->sets + first_set);
    states->starts[number] = shifted(program->start);
    if (program->exact) states->exact[number >> 6] |= uint64_t{1} << (number & 63);
    states->step_count += program->step_count;
    states->set_count += program->set_count;
}

// Splits the classes so that each lies inside the set or outside.
static void split_classes(regex_states *states, const byte_set &set) {
    uint8_t inside[256] = {}; // the new class of a class's bytes in the set, 0 for none yet
    bool has_outside[256] = {};
    for (unsigned byte = 1; byte < 256; byte++)
        if (!set.has(static_cast<uint8_t>(byte))) has_outside[states->class_of[byte]] = true;
    for (unsigned byte = 1; byte < 256; byte++) {
        uint8_t old = states->class_of[byte];
        if (!set.has(static_cast<uint8_t>(byte)) || !has_outside[old]) continue;
        if (inside[old] == 0) inside[old] = static_cast<uint8_t>(states->class_count++);
        states->class_of[byte] = inside[old];
    }
}

static void make_classes(regex_states *states) {
    states->class_count = 1;
    for (uint32_t i = 0; i < states->set_count; i++)
        split_classes(states, states->sets[i]);
    byte_set special = {};
    for (unsigned byte = 1; states->sees_words && byte < 256; byte++)
        if (is_word_byte(static_cast<uint8_t>(byte))) special.add(static_cast<uint8_t>(byte));
    split_classes(states, special);
    if (states->cut != nullptr) {
        special = {};
        special.add(states->cut->separator);
        split_classes(states, special);
    }
    for (unsigned byte = 255; byte > 0; byte--)
        states->sample[states->class_of[byte]] = static_cast<uint8_t>(byte);
    memcpy(states->run_class_of, states->class_of, sizeof states->class_of);
    if (states->cut != nullptr)
        states->run_class_of[states->cut->separator] = static_cast<uint8_t>(states->class_count);
    states->stride = states->class_count + 1;
}

static bool allocate_program(regex_states *states, regex_program *const *programs) {
    uint32_t steps = 0, sets = 0;
    for (uint32_t i = 0; i < states->count; i++) {
        steps += programs[i]->step_count;
        sets += programs[i]->set_count;
    }
    if (steps > UINT16_MAX || sets > UINT16_MAX) return false;
    size_t key_size = 1 + 4 * size_t{states->words} + steps;
    states->steps = heap_array<program_step>(steps);
    states->owner_of = heap_array<uint16_t>(steps);
    states->sets = heap_array<byte_set>(sets);
    states->starts = heap_array<uint16_t>(states->count);
    states->exact = heap_array<uint64_t>(states->words);
    states->marks = heap_array<uint32_t>(steps);
    // Each step is looked at once and puts two others there at most.
    states->stack = heap_array<uint16_t>(3 * size_t{steps} + states->count);
    states->taking = heap_array<uint16_t>(steps);
    states->key = heap_array<uint16_t>(key_size);
    states->found = heap_array<uint64_t>(states->words);
    return states->steps != nullptr && states->owner_of != nullptr && states->sets != nullptr &&
           states->starts != nullptr && states->exact != nullptr && states->marks != nullptr &&
           states->stack != nullptr && states->taking != nullptr && states->key != nullptr &&
           states->found != nullptr;
}

bool regex_states_build(regex_states *states, regex_program *const *programs, uint32_t count) {
    states->count = count;
    states->words = (count + 63) / 64;
    if (!allocate_program(states, programs)) return false;
    for (uint32_t i = 0; i < count; i++)
        join_program(states, programs[i], i);
    make_classes(states);
    return states->stride <= 256;
}

// ---- the memory of the states

static void drop_arrays(regex_states *states) {
    heap_free(states->next);
    heap_free(states->states);
    heap_free(states->ends);
    heap_free(states->table);
    heap_free(states->keys);
    states->next = nullptr;
    states->states = nullptr;
    states->ends = nullptr;
    states->table = nullptr;
    states->keys = nullptr;
    states->state_count = states->state_room = states->key_count = states->key_room = 0;
    bytes_of_all -= states->bytes;
    states->bytes = 0;
    states->epoch++;
}

static void unlink(regex_states *states) {
    if (states->newer != nullptr) states->newer->older = states->older;
    if (states->older != nullptr) states->older->newer = states->newer;
    if (last_used == states) last_used = states->older;
    states->newer = states->older = nullptr;
}

static void link_as_newest(regex_states *states) {
    states->older = last_used;
    if (last_used != nullptr) last_used->newer = states;
    last_used = states;
}

static regex_states *oldest_with_states() {
    regex_states *oldest = nullptr;
    for (regex_states *each = last_used; each != nullptr; each = each->older)
        if (each->bytes != 0) oldest = each;
    return oldest;
}

// What the states take that `room` states and their keys need.
static size_t bytes_for(const regex_states *states, uint32_t room, uint32_t key_room) {
    return room * (states->stride * sizeof(uint32_t) + sizeof(regex_state) +
                   states->words * sizeof(uint64_t) + 2 * sizeof(uint32_t)) +
           key_room * sizeof(uint16_t);
}

// Other sets, the longest unused first, make room for this one.
static bool fits_budget(const regex_states *states, size_t bytes) {
    if (bytes > SET_BUDGET) return false;
    while (bytes_of_all - states->bytes + bytes > ALL_BUDGET) {
        regex_states *oldest = oldest_with_states();
        if (oldest == states || oldest == nullptr) return false;
        drop_arrays(oldest);
    }
    return true;
}

static uint32_t hash_key(const uint16_t *key, uint32_t length) {
    uint32_t hash = 2166136261U;
    for (uint32_t i = 0; i < length; i++)
        hash = (hash ^ key[i]) * 16777619U;
    return hash ^ hash >> 15;
}

static void enter_table(regex_states *states, uint32_t number) {
    const regex_state *state = &states->states[number];
    uint32_t mask = 2 * states->state_room - 1;
    uint32_t place = hash_key(states->keys + state->key_at, state->key_length) & mask;
    while (states->table[place] != 0)
        place = (place + 1) & mask;
    states->table[place] = number + 1;
}

template <class T>
static bool grow_array(T **array, size_t used, size_t room) {
    T *grown = heap_array<T>(room);
    if (grown == nullptr) return false;
    if (used != 0) memcpy(grown, *array, used * sizeof(T));
    heap_free(*array);
    *array = grown;
    return true;
}

static bool grow_states(regex_states *states, uint32_t room) {
    uint32_t used = states->state_count;
    if (!grow_array(&states->next, size_t{used} * states->stride, size_t{room} * states->stride) ||
        !grow_array(&states->states, used, room) ||
        !grow_array(&states->ends, size_t{used} * states->words, size_t{room} * states->words) ||
        !grow_array(&states->table, 0, 2 * size_t{room}))
        return false;
    states->state_room = room;
    for (uint32_t i = 0; i < used; i++)
        enter_table(states, i);
    return true;
}

// Room for the states of one more transition. False when the budget or memory is out.
static bool make_room(regex_states *states) {
    uint32_t longest = 1 + 4 * states->words + states->step_count;
    uint32_t room = states->state_room, key_room = states->key_room;
    if (states->state_count + NEW_STATES > room) room = std::max(FIRST_ROOM, 2 * room);
    if (states->key_count + NEW_STATES * longest > key_room) key_room = 2 * key_room + 8 * longest;
    if (room == states->state_room && key_room == states->key_room) return true;
    size_t bytes = bytes_for(states, room, key_room);
    if (room > ROOM_LIMIT || !fits_budget(states, bytes)) return false;
    if (key_room != states->key_room && !grow_array(&states->keys, states->key_count, key_room)) return false;
    states->key_room = key_room;
    if (room != states->state_room && !grow_states(states, room)) return false;
    bytes_of_all += bytes - states->bytes;
    states->bytes = bytes;
    return true;
}

void regex_states_free(regex_states *states) {
    unlink(states);
    drop_arrays(states);
    heap_free(states->steps);
    heap_free(states->owner_of);
    heap_free(states->sets);
    heap_free(states->starts);
    heap_free(states->exact);
    heap_free(states->marks);
    heap_free(states->stack);
    heap_free(states->taking);
    heap_free(states->key);
    heap_free(states->found);
}

// ---- states

// Marks of earlier rounds count as none.
static uint32_t next_generation(regex_states *states) {
    if (++states->generation == 0) {
        std::fill_n(states->marks, states->step_count, 0U);
        states->generation = 1;
    }
    return states->generation;
}

// The state of this key, made where there is none. There is room for it.
static uint32_t state_of(regex_states *states, const uint16_t *key, uint32_t length) {
    uint32_t mask = 2 * states->state_room - 1;
    for (uint32_t place = hash_key(key, length) & mask; states->table[place] != 0;
         place = (place + 1) & mask) {
        uint32_t number = states->table[place] - 1;
        const regex_state *state = &states->states[number];
        if (state->key_length == length &&
            memcmp(states->keys + state->key_at, key, length * sizeof(uint16_t)) == 0)
            return number * states->stride;
    }
    uint32_t number = states->state_count++;
    memcpy(states->keys + states->key_count, key, length * sizeof(uint16_t));
    states->states[number] = {.key_at = states->key_count, .key_length = length, .end_known = false};
    states->key_count += length;
    std::fill_n(states->next + size_t{number} * states->stride, states->stride, NOT_MADE);
    enter_table(states, number);
    return number * states->stride;
}

static const uint16_t *key_of(const regex_states *states, uint32_t state, uint32_t *out_length) {
    const regex_state *found = &states->states[state / states->stride];
    *out_length = found->key_length;
    return states->keys + found->key_at;
}

static void load_found(const regex_states *states, const uint16_t *key) {
    memcpy(states->found, key + 1, states->words * sizeof(uint64_t));
}

static bool is_found(const regex_states *states, uint32_t number) {
    return regex_bit(states->found, number);
}

static bool holds(regex_assertion assertion, uint16_t flags, following next) {
    bool behind_word = (flags & BEHIND_WORD) != 0, ahead_of_word = next == WORD_BYTE;
    switch (assertion) {
    case AT_START:
        return (flags & AT_TEXT_START) != 0;
    case AT_END:
        return next == TEXT_END;
    case WORD_START:
        return !behind_word && ahead_of_word;
    case WORD_END:
        return behind_word && !ahead_of_word;
    case WORD_EDGE:
        return behind_word != ahead_of_word;
    case NO_WORD_EDGE:
        return behind_word == ahead_of_word;
    }
    return false;
}

// Follows what takes no byte from the places of a state, and from the start of each expression that is not
// found yet, since it may begin anywhere. Leaves the steps that take a byte in `taking`, and what is found in
// `found`.
static uint32_t close_state(regex_states *states, const uint16_t *key, uint32_t length, following next) {
    uint32_t taking = 0, height = 0;
    uint32_t seen = next_generation(states);
    load_found(states, key);
    for (uint32_t i = 1 + 4 * states->words; i < length; i++)
        states->stack[height++] = key[i];
    for (uint32_t i = 0; i < states->count; i++)
        if (!is_found(states, i)) states->stack[height++] = states->starts[i];
    while (height > 0) {
        uint16_t number = states->stack[--height];
        if (states->marks[number] == seen) continue;
        states->marks[number] = seen;
        const program_step *step = &states->steps[number];
        uint32_t owner = states->owner_of[number];
        switch (step->op) {
        case OP_BYTES:
            states->taking[taking++] = number;
            break;
        case OP_SPLIT:
            states->stack[height++] = step->other;
            states->stack[height++] = step->out;
            break;
        case OP_ASSERT:
            if (holds(step->assertion, key[0], next)) states->stack[height++] = step->out;
            break;
        case OP_FOUND:
            states->found[owner >> 6] |= uint64_t{1} << (owner & 63);
            break;
        }
    }
    return taking;
}

static uint16_t flags_behind(const regex_states *states, uint8_t byte) {
    return states->sees_words && is_word_byte(byte) ? BEHIND_WORD : 0;
}

// The state behind a byte. `marks` makes it one of its own.
static uint32_t step_over(regex_states *states, uint32_t state, uint8_t byte, uint16_t marks) {
    uint32_t length;
    const uint16_t *from = key_of(states, state, &length);
    uint32_t taking = close_state(states, from, length, is_word_byte(byte) ? WORD_BYTE : OTHER_BYTE);
    uint32_t seen = next_generation(states);
    uint32_t head = 1 + 4 * states->words, count = head;
    for (uint32_t i = 0; i < taking; i++) {
        uint16_t number = states->taking[i];
        const program_step *step = &states->steps[number];
        if (is_found(states, states->owner_of[number]) || !states->sets[step->set].has(byte)) continue;
        if (states->marks[step->out] == seen) continue;
        states->marks[step->out] = seen;
        states->key[count++] = step->out;
    }
    std::sort(states->key + head, states->key + count);
    states->key[0] = static_cast<uint16_t>(flags_behind(states, byte) | marks);
    memcpy(states->key + 1, states->found, states->words * sizeof(uint64_t));
    return state_of(states, states->key, count);
}

static bool add_first_states(regex_states *states) {
    uint32_t head = 1 + 4 * states->words;
    if (!make_room(states)) return false;
    std::fill_n(states->key, head, uint16_t{0});
    states->key[0] = AT_TEXT_START;
    uint32_t first = state_of(states, states->key, head);
    states->behind = first;
    if (states->cut != nullptr && states->cut->place == SEPARATOR_OPENS)
        states->behind = step_over(states, first, states->cut->separator, BEHIND_SEPARATOR);
    return true;
}

bool regex_states_use(regex_states *states) {
    if (states->given_up) return false;
    unlink(states);
    link_as_newest(states);
    return states->state_count != 0 || add_first_states(states);
}

// ---- transitions

static bool pays(regex_states *states) {
    bool well = states->run >= BYTES_A_TRANSITION * states->made;
    states->failures = well ? 0 : states->failures + 1;
    states->made = states->run = 0;
    return states->failures < FAILURE_LIMIT;
}

// Starts anew with this state alone. False where that has not paid for some time, or memory is out.
static bool start_anew(regex_states *states, uint32_t *state) {
    uint32_t length;
    const uint16_t *key = key_of(states, *state, &length);
    uint16_t *kept = heap_array<uint16_t>(length);
    if (kept == nullptr || !pays(states)) {
        heap_free(kept);
        return false;
    }
    memcpy(kept, key, length * sizeof(uint16_t));
    drop_arrays(states);
    bool made = add_first_states(states) && make_room(states);
    if (made) *state = state_of(states, kept, length);
    heap_free(kept);
    return made;
}

static bool is_empty_record(const regex_states *states, uint32_t state) {
    uint32_t length;
    uint16_t flags = key_of(states, state, &length)[0];
    return (flags & (AT_TEXT_START | BEHIND_SEPARATOR)) != 0;
}

static uint32_t end_record(regex_states *states, uint32_t state) {
    if (is_empty_record(states, state)) return states->behind;
    uint32_t last = state;
    if (states->cut->place == SEPARATOR_CLOSES) last = step_over(states, state, states->cut->separator, 0);
    bool wanted = states->wish(states->wish_owner, regex_states_end(states, last));
    return states->behind | (wanted ? IS_SPECIAL | IS_WANTED : 0);
}

uint32_t regex_states_make(regex_states *states, uint32_t state, uint32_t class_number) {
    if (!make_room(states) && (!start_anew(states, &state) || !make_room(states))) {
        states->given_up = true;
        drop_arrays(states);
        return NOT_MADE;
    }
    uint32_t value = class_number == states->class_count
                         ? end_record(states, state)
                         : step_over(states, state, states->sample[class_number], 0);
    states->next[state + class_number] = value;
    states->made++;
    return value;
}

regex_bits regex_states_end(regex_states *states, uint32_t state) {
    uint32_t number = state / states->stride;
    uint64_t *bits = states->ends + size_t{number} * states->words;
    if (!states->states[number].end_known) {
        uint32_t length;
        const uint16_t *key = key_of(states, state, &length);
        close_state(states, key, length, TEXT_END);
        memcpy(bits, states->found, states->words * sizeof(uint64_t));
        states->states[number].end_known = true;
    }
    return bits;
}
