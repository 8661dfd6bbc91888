#include "probes/os/process_names.h"

#include "platform/heap.h"
#include "platform/text.h"

namespace {

struct known_name {
    process_run run;
    char *whole;
    known_name *next;
};

// In the order of their ids.
known_name *known_names;
// The place of the process that was turned to last: its name, or the next one.
known_name **place = &known_names;
uint32_t turned_to;

} // namespace

static known_name *name_here() {
    return *place != nullptr && (*place)->run.id == turned_to ? *place : nullptr;
}

static void drop_here() {
    known_name *gone = *place;
    *place = gone->next;
    heap_free(gone->whole);
    heap_free(gone);
}

void process_names_turn_to(uint32_t id) {
    if (id == turned_to) return;
    if (id < turned_to)
        place = &known_names;
    else if (name_here() != nullptr)
        place = &(*place)->next;
    turned_to = id;
    while (*place != nullptr && (*place)->run.id < id)
        drop_here();
}

void process_names_end() {
    process_names_turn_to(UINT32_MAX);
}

void process_names_reset() {
    turned_to = 0;
    for (place = &known_names; *place != nullptr;)
        drop_here();
}

const char *remembered_name(const process_run &run, const char *beginning) {
    const known_name *known = name_here();
    if (known == nullptr || known->run.started != run.started || known->run.stack != run.stack)
        return nullptr;
    return text_starts_with(known->whole, beginning) ? known->whole : nullptr;
}

void remember_name(const process_run &run, const char *whole) {
    const char *known = remembered_name(run, whole);
    if (known != nullptr && text_equal(known, whole)) return;
    forget_name();
    guard<known_name, heap_free> name(heap_new<known_name>());
    if (name == nullptr) return;
    *name = {.run = run, .whole = text_copy(whole), .next = *place};
    if (name->whole != nullptr) *place = name.release();
}

void forget_name() {
    if (name_here() != nullptr) drop_here();
}
