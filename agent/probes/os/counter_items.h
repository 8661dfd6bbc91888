// What an object of the host's counters holds: its counters and its instances, by their national names.
#pragma once

#include <cstdint>

// Two lists of texts, each ended by an empty one. Absent where they could not be had.
struct counter_items {
    char *counters;
    char *instances;
};

// How the failures of one caller are worded.
struct counter_items_words {
    const char *(*format_no_sizes)(const char *reason);
    const char *no_memory_for_counters;
    const char *no_memory_for_instances;
};

// Reads both lists of the object with this national name, at the detail level of the settings.
[[nodiscard]] const char *read_counter_items(const char *object, const counter_items_words &words,
                                             counter_items *out);
void free_counter_items(counter_items *items);

// A cleared block for a list of `size` bytes, with an end behind it that the host need not write; or absent.
char *alloc_name_list(uint32_t size);

// The text behind this one of a list.
const char *next_name(const char *name);

// The detail level of the settings.
uint32_t counter_detail();
