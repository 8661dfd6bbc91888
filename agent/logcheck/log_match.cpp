#include "logcheck/log_match.h"

#include "logcheck/log_path.h"
#include "platform/agent_log.h"
#include "platform/text.h"

static void free_log_match(log_match *match) {
    if (match == nullptr) return;
    heap_free(match->name);
    log_conf_free(match->lines);
    heap_free(match);
}

using log_match_guard = guard<log_match, free_log_match>;

// ---- the index by name

// Names that differ in case alone share a number on every host.
static uint32_t name_hash(const char *name) {
    uint32_t hash = 2166136261U;
    for (; *name != '\0'; name++)
        hash = (hash ^ static_cast<unsigned char>(to_lower(*name))) * 16777619U;
    return hash;
}

static bool same_name(const char *a, const char *b) {
    return log_path_style_in_force->has_drives ? text_equal_folded(a, b) : text_equal(a, b);
}

// The slot that holds the name, or the empty one where it belongs.
static log_match **slot_of(log_match **slots, uint32_t slot_count, const char *name) {
    uint32_t at = name_hash(name) % slot_count;
    while (slots[at] != nullptr && !same_name(slots[at]->name, name))
        at = at + 1 < slot_count ? at + 1 : 0;
    return &slots[at];
}

// Half of the slots stay empty.
static bool make_room(log_match_list *list) {
    if (list->count * 2 < list->slot_count) return true;
    uint32_t slot_count = list->slot_count != 0 ? list->slot_count * 2 : 8;
    auto **slots = heap_array<log_match *>(slot_count);
    if (slots == nullptr) return false;
    for (log_match *match = list->first; match != nullptr; match = match->next)
        *slot_of(slots, slot_count, match->name) = match;
    heap_free(list->slots);
    list->slots = slots;
    list->slot_count = slot_count;
    return true;
}

// ---- the list

static log_match *new_log_match(const char *name, const log_path_part *rest) {
    log_match_guard match(heap_new<log_match>());
    if (match != nullptr) match->name = text_copy(name);
    if (match == nullptr || match->name == nullptr) {
        agent_log(LOG_ERROR, "Out of memory attempting to allocate match component for \"%s\"", name);
        return nullptr;
    }
    match->lines_end = &match->lines;
    if (rest == nullptr) return match.release();
    log_path_part *chain = log_chain_copy(rest);
    match->lines = chain != nullptr ? new_log_conf_line(chain) : nullptr;
    if (match->lines == nullptr) return nullptr;
    match->lines_end = &match->lines->next;
    return match.release();
}

static bool has_line(const log_match *match, const log_path_part *chain) {
    for (const log_conf_line *line = match->lines; line != nullptr; line = line->next)
        if (log_chain_equal(line->parts, chain)) return true;
    return false;
}

// A line that starts with the recursive marker reaches a folder by several ways, and would from there reach
// the next one by twice as many. The second time it can find nothing new.
static void move_lines(log_match *from, log_match *to) {
    if (from->lines == nullptr) return;
    if (from->lines->parts->kind == PART_ANY_DEPTH && has_line(to, from->lines->parts)) return;
    *to->lines_end = from->lines;
    to->lines_end = from->lines_end;
    from->lines = nullptr;
}

void add_log_match(log_match_list *list, uint32_t kind, uint32_t strict, const char *name,
                   const log_path_part *rest) {
    log_match_guard match(new_log_match(name, rest));
    if (match == nullptr) return;
    if (!make_room(list)) {
        agent_log(LOG_ERROR, "Out of memory attempting to allocate match component for \"%s\"", name);
        return;
    }
    log_match **slot = slot_of(list->slots, list->slot_count, name);
    if (*slot != nullptr) {
        move_lines(match.get(), *slot);
        return;
    }
    match->kind = kind;
    match->strict = strict;
    match->next = list->first;
    list->count++;
    *slot = list->first = match.release();
}

void free_log_matches(log_match_list *list) {
    while (list->first != nullptr) {
        log_match *next = list->first->next;
        free_log_match(list->first);
        list->first = next;
    }
    heap_free(list->slots);
    *list = {};
}
