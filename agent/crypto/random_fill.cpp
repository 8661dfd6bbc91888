#include "crypto/random_fill.h"

#include "platform/clock.h"

bool random_fill(void *buffer, size_t count) {
    return random_host->random_bytes(buffer, count);
}
