// Random bytes of the host's own generator, for keys and challenges.
#pragma once

#include <cstddef>

bool random_fill(void *buffer, size_t count);
