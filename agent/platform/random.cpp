// The small generator behind `tn_rand`; what is fit for keys comes from the host.

#include "platform/clock.h"

const random_ops *random_host;

static uint32_t state = 1;

void tn_srand(uint32_t seed) {
    state = seed;
}

int32_t tn_rand() {
    state = state * 1103515245U + 12345U;
    return static_cast<int32_t>((state >> 16) & 0x7FFF);
}
