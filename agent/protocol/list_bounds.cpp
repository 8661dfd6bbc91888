#include "protocol/list_bounds.h"

#include <cstdint>

static constexpr uint32_t DEPTH_LIMIT = 1000;
static constexpr uint32_t ELEMENT_LIMIT = 1U << 18;

static uint32_t depth;
static uint32_t elements;

list_level::list_level() {
    if (depth++ == 0) elements = 0;
}

list_level::~list_level() {
    depth--;
}

bool tree_is_full() {
    return depth > DEPTH_LIMIT || (depth > 0 && elements++ >= ELEMENT_LIMIT);
}
