#include "platform/regex_set.h"

#include "platform/heap.h"
#include "platform/regex_states.h"

struct regex_set {
    regex_states states;
};

using set_guard = guard<regex_set, regex_set_free>;

static bool write_programs(const tn_regex *const *regexes, uint32_t count, regex_program **out) {
    for (uint32_t i = 0; i < count; i++)
        if (regexes[i]->pattern == nullptr || (out[i] = regex_program_new(regexes[i]->pattern)) == nullptr)
            return false;
    return true;
}

static bool build_set(regex_set *set, const tn_regex *const *regexes, uint32_t count) {
    auto **programs = static_cast<regex_program **>(heap_alloc(count * sizeof(regex_program *)));
    if (programs == nullptr) return false;
    bool built =
        write_programs(regexes, count, programs) && regex_states_build(&set->states, programs, count);
    for (uint32_t i = 0; i < count; i++)
        regex_program_free(programs[i]);
    heap_free(programs);
    return built;
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
    return build_set(set.get(), regexes, count) ? set.release() : nullptr;
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
    const char *at = text;
    for (; *at != '\0'; at++) {
        uint8_t class_number = states->class_of[static_cast<uint8_t>(*at)];
        uint32_t value = states->next[state + class_number];
        if (value == NOT_MADE) {
            value = regex_states_make(states, state, class_number);
            if (value == NOT_MADE) return nullptr;
        }
        state = value;
    }
    states->run += static_cast<uint64_t>(at - text);
    return regex_states_end(states, state);
}

bool regex_set_start(regex_set *set, const char *at, const char *end, bool behind_separator,
                     record_run *out) {
    bool usable = regex_states_use(&set->states);
    *out = {.at = at, .end = end, .state = behind_separator ? set->states.behind : 0};
    return usable;
}

bool regex_set_next(regex_set *set, record_run *run, const char **out_separator) {
    regex_states *states = &set->states;
    const uint8_t *classes = states->run_class_of;
    const char *at = run->at;
    uint32_t state = run->state;
    *out_separator = nullptr;
    states->run += static_cast<uint64_t>(run->end - at);
    while (at != run->end) {
        uint8_t class_number = classes[static_cast<uint8_t>(*at)];
        uint32_t value = states->next[state + class_number];
        if (value == NOT_MADE) {
            value = regex_states_make(states, state, class_number);
            if (value == NOT_MADE) return false;
        }
        state = value & ~(IS_SPECIAL | IS_WANTED);
        at++;
        if ((value & IS_WANTED) != 0) {
            *out_separator = at - 1;
            break;
        }
    }
    states->run -= static_cast<uint64_t>(run->end - at);
    run->at = at;
    run->state = state;
    return true;
}
