#include "server/memory_pool.h"

bool memory_pool::take(size_t bytes) {
    size_t before = taken.fetch_add(bytes);
    if (bytes <= limit && before <= limit - bytes) return true;
    taken -= bytes;
    return false;
}

bool memory_share::take(size_t bytes) {
    if (bytes > limit || taken > limit - bytes || !pool->take(bytes)) return false;
    taken += bytes;
    return true;
}

void memory_share::give_all() {
    pool->give(taken);
    taken = 0;
}
