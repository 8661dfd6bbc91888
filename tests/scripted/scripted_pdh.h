// What a test says to the counter library that stands in for the host's.
//
// Its host speaks German: "Systembetriebszeit" is a level, which has a value after one sample,
// "Kontextwechsel/s" a rate, which takes two. Calls succeed unless the next of them was given another status.
#pragma once

#include <cstdint>

struct scripted_pdh {
    // The next call of the function gives this status.
    void (*fail_next)(const char *function, uint32_t status);
    // What counters show from now on.
    void (*show)(double value);
    int32_t (*open_queries)();
    int32_t (*open_counters)();
    // How often it was told to look anew for objects.
    int32_t (*refreshes)();
    // Forgets all of it.
    void (*reset)();
};
