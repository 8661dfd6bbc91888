// A table of names of which some are equal: tells how many equal ones came before, and finds the n-th of
// them.
//
// The names belong to the caller, who keeps them where they are.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

struct indexed_name {
    const char *name;  // absent for a free place
    uint32_t number;   // of equal ones before it
    uint32_t position; // among all
    uint32_t equals;   // on the first of equal ones: how many there are
};

struct name_index {
    indexed_name *places;
    uint32_t capacity; // a power of two
    uint32_t count;
};

// False when memory is out, with the table as it was. `out_number` gets the number of equal names before.
bool index_name(name_index *index, const char *name, uint32_t *out_number);

// The `number`-th of the names that equal these `length` bytes, counted from 0; absent where there are fewer.
const indexed_name *find_indexed_name(const name_index *index, const char *name, size_t length,
                                      uint32_t number);

void free_name_index(name_index *index);
