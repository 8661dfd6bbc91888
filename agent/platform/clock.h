// Time, sleep and chance.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

struct clock_ops {
    // Seconds since 1970.
    int64_t (*time)();
    // Local calendar time.
    bool (*localtime)(int64_t time, tm *out);
    // Blocks the caller; nothing wakes it early.
    void (*Sleep)(uint32_t milliseconds);
};

struct random_ops {
    // Bytes of the host's own generator, fit for keys. False when it has none to give.
    bool (*random_bytes)(void *buffer, size_t count);
};

extern const clock_ops clock_ops_host;
extern const clock_ops *clock_host;
extern const random_ops random_ops_host;
extern const random_ops *random_host;

int64_t time_now();

inline constexpr size_t CTIME_SIZE = 25;

// The 24 characters of ctime, "Wed Jun 30 21:49:08 1993", and their end.
void format_ctime(int64_t time, char out[CTIME_SIZE]);

// A small generator for holds and made-up results, the same on every host: 0 to 0x7FFF, as its users expect
// of rand.
void tn_srand(uint32_t seed);
int32_t tn_rand();
