// What the samples of a counter make, by its type.
#pragma once

#include "probes/os/counter_objects.h"

struct timed_sample {
    counter_sample reading;
    uint64_t ticks; // nanoseconds
};

struct counter_history {
    uint32_t samples; // 0 to 2, the newest in `current`
    timed_sample current;
    timed_sample previous;
};

void add_sample(counter_history *history, const counter_sample &reading, uint64_t ticks);

// False where it takes more samples, or where nothing has moved that it is measured by.
bool make_counter_value(counter_type type, const counter_history &history, double *out);
