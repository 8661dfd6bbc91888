// The small services of a simulated host: clock, chance, waits, heap, errors, the event log, the end of the
// process.
#pragma once

#include "core/signals.h"
#include "platform/clock.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"
#include "platform/regex.h"
#include "platform/waits.h"
#include "settings/places.h"

// Thrown where the agent's process would end.
struct agent_ended {
    int status;
};

extern const clock_ops sim_clock;
extern const random_ops sim_random;
extern const crash_ops sim_crash; // nothing here ever faults
extern const error_ops sim_errors;
extern const heap_ops sim_heap;
extern const event_ops sim_events;
extern const process_ops sim_process;
extern const waits_ops sim_waits;
extern const regex_ops sim_regex;
extern const places_ops sim_places;
extern const signals_ops sim_signals;

void set_sim_event(waitable *event); // takes absent

// Frees what the life that has ended has left in these services.
void sim_services_bury();
