#include "platform/regex_set.h"

#include "platform/heap.h"
#include "platform/regex_literal.h"
#include "platform/regex_states.h"

#include <algorithm>

namespace {

constexpr uint32_t LITERALS_LIMIT = 4; // more take longer to look for than the automaton takes

} // namespace

struct regex_set {
    regex_states states;
    // One for each expression where each has one, and a record without any is not wanted: then a run looks
    // for these first. 0 otherwise.
    uint32_t literal_count;
    regex_literal literals[LITERALS_LIMIT];
};

using set_guard = guard<regex_set, regex_set_free>;

static bool write_programs(const tn_regex *const *regexes, uint32_t count, regex_program **out) {
    for (uint32_t i = 0; i < count; i++)
        if (regexes[i]->pattern == nullptr || (out[i] = regex_program_new(regexes[i]->pattern)) == nullptr)
            return false;
    return true;
}

static bool build_set(regex_set *set, const tn_regex *const *regexes, uint32_t count) {
    auto **programs = heap_array<regex_program *>(count);
    if (programs == nullptr) return false;
    bool built =
        write_programs(regexes, count, programs) && regex_states_build(&set->states, programs, count);
    for (uint32_t i = 0; i < count; i++)
        regex_program_free(programs[i]);
    heap_free(programs);
    return built;
}

static bool wants_nothing_found(const regex_set *set) {
    uint64_t none[REGEX_SET_LIMIT / 64] = {};
    return set->states.wish(set->states.wish_owner, none);
}

static void find_literals(regex_set *set, const tn_regex *const *regexes, uint32_t count) {
    if (set->states.cut == nullptr || count > LITERALS_LIMIT || wants_nothing_found(set)) return;
    for (uint32_t i = 0; i < count; i++) {
        set->literals[i] = regex_literal_of(regexes[i]->pattern);
        if (set->literals[i].length < 2) return;
    }
    set->literal_count = count;
}

static bool may_hold_wanted(const regex_set *set, const char *at, const char *end) {
    for (uint32_t i = 0; i < set->literal_count; i++)
        if (literal_occurs(&set->literals[i], at, static_cast<size_t>(end - at))) return true;
    return set->literal_count == 0;
}

regex_set *regex_set_new(const tn_regex *const *regexes, uint32_t count, const record_cut *cut,
                         record_wish wish, void *owner) {
    if (count == 0 || count > REGEX_SET_LIMIT) return nullptr;
    set_guard set(heap_new<regex_set>());
    if (set == nullptr) return nullptr;
    regex_states *states = &set->states;
    if (cut != nullptr) {
        states->cut_held = *cut;
        states->cut = &states->cut_held;
    }
    states->wish = wish;
    states->wish_owner = owner;
    if (!build_set(set.get(), regexes, count)) return nullptr;
    find_literals(set.get(), regexes, count);
    return set.release();
}

void regex_set_free(regex_set *set) {
    if (set == nullptr) return;
    regex_states_free(&set->states);
    heap_free(set);
}

bool regex_set_is_exact(const regex_set *set, uint32_t number) {
    return regex_bit(set->states.exact, number);
}

regex_bits regex_set_match(regex_set *set, const char *text) {
    regex_states *states = &set->states;
    if (!regex_states_use(states)) return nullptr;
    uint32_t state = 0;
    const uint32_t *next = states->next;
    const char *at = text;
    for (; *at != '\0'; at++) {
        uint8_t class_number = states->class_of[static_cast<uint8_t>(*at)];
        uint32_t value = next[state + class_number];
        if (value == NOT_MADE) {
            value = regex_states_make(states, state, class_number);
            if (value == NOT_MADE) return nullptr;
            next = states->next;
        }
        state = value;
    }
    states->run += static_cast<uint64_t>(at - text);
    return regex_states_end(states, state);
}

// ---- runs over records

namespace {

constexpr uint32_t LANES = 4;
constexpr size_t SHORTEST_LANE = 512;

// One of the parts that a run is cut into, since the look-ups of one wait for each other and those of several
// do not. Each starts with a record.
struct run_lane {
    const char *at, *end;
    const char *start;
    uint32_t state;
    uint16_t *out; // where the next place goes
    uint16_t *first;
};

struct record_run {
    regex_states *states;
    const char *start;
    bool behind_separator;
    run_lane lanes[LANES];
    uint32_t count;
};

} // namespace

// The start of the record that `at` lies in, by the separators from `from` on.
static const char *record_start(const char *from, const char *at, uint8_t separator) {
    while (at > from && static_cast<uint8_t>(at[-1]) != separator)
        at--;
    return at;
}

static uint32_t state_at_start(const record_run *run, const char *record) {
    return record == run->start && !run->behind_separator ? 0 : run->states->behind;
}

static void split_lanes(record_run *run, const char *end, uint16_t *out) {
    size_t length = static_cast<size_t>(end - run->start);
    uint32_t wanted = length >= LANES * SHORTEST_LANE ? LANES : 1;
    const char *at = run->start;
    for (uint32_t i = 1; i <= wanted; i++) {
        const char *lane_end =
            i == wanted ? end
                        : record_start(at, run->start + length * i / wanted, run->states->cut->separator);
        if (lane_end == at) continue;
        // A record that is told has one byte at least, and its separator.
        uint16_t *first = out + (static_cast<size_t>(at - run->start) + 1) / 2;
        run->lanes[run->count++] = {.at = at,
                                    .end = lane_end,
                                    .start = at,
                                    .state = state_at_start(run, at),
                                    .out = first,
                                    .first = first};
        at = lane_end;
    }
}

// In a new epoch the states of the lanes are no more; each goes back to the start of its record.
static void rewind_others(record_run *run, const run_lane *current) {
    for (uint32_t i = 0; i < run->count; i++) {
        run_lane *lane = &run->lanes[i];
        if (lane == current) continue;
        lane->at = record_start(lane->start, lane->at, run->states->cut->separator);
        lane->state = state_at_start(run, lane->at);
    }
}

// Takes one byte where the plain look-up does not do. False when the set was given up.
static bool take_byte(record_run *run, run_lane *lane) {
    regex_states *states = run->states;
    uint8_t class_number = states->run_class_of[static_cast<uint8_t>(*lane->at)];
    uint32_t value = states->next[lane->state + class_number];
    uint32_t epoch = states->epoch;
    if (value == NOT_MADE) value = regex_states_make(states, lane->state, class_number);
    if (value == NOT_MADE) return false;
    if ((value & IS_WANTED) != 0) *lane->out++ = static_cast<uint16_t>(lane->at - run->start);
    lane->state = value & ~(IS_SPECIAL | IS_WANTED);
    lane->at++;
    if (states->epoch != epoch) rewind_others(run, lane);
    return true;
}

// Takes bytes of all lanes together, until one has none left or needs more than a look-up.
static void take_together(record_run *run) {
    static_assert(LANES == 4);
    const uint32_t *next = run->states->next;
    const uint8_t *classes = run->states->run_class_of;
    run_lane *lanes = run->lanes;
    auto byte_of = [lanes](uint32_t lane, size_t i) { return static_cast<uint8_t>(lanes[lane].at[i]); };
    size_t length = SIZE_MAX;
    for (const run_lane &lane : run->lanes)
        length = std::min(length, static_cast<size_t>(lane.end - lane.at));
    uint32_t a = lanes[0].state, b = lanes[1].state, c = lanes[2].state, d = lanes[3].state;
    size_t i = 0;
    for (; i < length; i++) {
        uint32_t next_a = next[a + classes[byte_of(0, i)]], next_b = next[b + classes[byte_of(1, i)]];
        uint32_t next_c = next[c + classes[byte_of(2, i)]], next_d = next[d + classes[byte_of(3, i)]];
        if (((next_a | next_b | next_c | next_d) & IS_SPECIAL) != 0) break;
        a = next_a;
        b = next_b;
        c = next_c;
        d = next_d;
    }
    const uint32_t reached[LANES] = {a, b, c, d};
    for (uint32_t lane = 0; lane < LANES; lane++) {
        lanes[lane].state = reached[lane];
        lanes[lane].at += i;
    }
}

static void take_alone(const record_run *run, run_lane *lane) {
    const uint32_t *next = run->states->next;
    const uint8_t *classes = run->states->run_class_of;
    uint32_t state = lane->state;
    const char *at = lane->at;
    while (at != lane->end) {
        uint32_t value = next[state + classes[static_cast<uint8_t>(*at)]];
        if ((value & IS_SPECIAL) != 0) break;
        state = value;
        at++;
    }
    lane->state = state;
    lane->at = at;
}

static bool run_together(record_run *run) {
    for (;;) {
        take_together(run);
        for (run_lane &lane : run->lanes) {
            if (lane.at == lane.end) return true;
            if (!take_byte(run, &lane)) return false;
        }
    }
}

// A new epoch sends lanes back that were at their end, so all are looked at until none has bytes left.
static bool run_alone(record_run *run) {
    for (bool done = false; !done;) {
        done = true;
        for (uint32_t i = 0; i < run->count; i++) {
            run_lane *lane = &run->lanes[i];
            take_alone(run, lane);
            if (lane->at == lane->end) continue;
            done = false;
            if (!take_byte(run, lane)) return false;
        }
    }
    return true;
}

static uint32_t gather(const record_run *run, uint16_t *out) {
    uint32_t count = 0;
    for (uint32_t i = 0; i < run->count; i++)
        for (const uint16_t *place = run->lanes[i].first; place != run->lanes[i].out; place++)
            out[count++] = *place;
    return count;
}

uint32_t regex_set_run(regex_set *set, const char *at, const char *end, bool behind_separator,
                       uint16_t *out) {
    regex_states *states = &set->states;
    if (!may_hold_wanted(set, behind_separator ? at - 1 : at, end)) return 0;
    if (!regex_states_use(states)) return RECORDS_NOT_KNOWN;
    record_run run = {.states = states, .start = at, .behind_separator = behind_separator};
    split_lanes(&run, end, out);
    states->run += static_cast<uint64_t>(end - at);
    bool known = (run.count != LANES || run_together(&run)) && run_alone(&run);
    return known ? gather(&run, out) : RECORDS_NOT_KNOWN;
}
