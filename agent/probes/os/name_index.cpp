#include "probes/os/name_index.h"

#include <cstring>

// As text_hash, over a part of a text, and another for each of equal names.
static uint32_t hash_of(const char *name, size_t length, uint32_t number) {
    uint32_t hash = 2166136261U;
    for (size_t i = 0; i < length; i++)
        hash = (hash ^ static_cast<uint8_t>(name[i])) * 16777619U;
    hash = (hash ^ number) * 2654435761U;
    return hash ^ hash >> 15;
}

static bool is_name(const indexed_name &place, const char *name, size_t length, uint32_t number) {
    return place.number == number && strncmp(place.name, name, length) == 0 && place.name[length] == '\0';
}

// The place of the name, or the free one where it belongs.
static indexed_name *find_place(const name_index *index, const char *name, size_t length, uint32_t number) {
    uint32_t mask = index->capacity - 1;
    uint32_t at = hash_of(name, length, number) & mask;
    while (index->places[at].name != nullptr && !is_name(index->places[at], name, length, number))
        at = (at + 1) & mask;
    return &index->places[at];
}

static bool grow(name_index *index) {
    name_index larger = {.capacity = index->capacity != 0 ? index->capacity * 2 : 64};
    larger.places = heap_array<indexed_name>(larger.capacity);
    if (larger.places == nullptr) return false;
    for (uint32_t i = 0; i < index->capacity; i++) {
        const indexed_name &place = index->places[i];
        if (place.name != nullptr) *find_place(&larger, place.name, strlen(place.name), place.number) = place;
    }
    larger.count = index->count;
    heap_free(index->places);
    *index = larger;
    return true;
}

bool index_name(name_index *index, const char *name, uint32_t *out_number) {
    if (index->count * 2 >= index->capacity && !grow(index)) return false;
    size_t length = strlen(name);
    indexed_name *first = find_place(index, name, length, 0);
    uint32_t number = first->name != nullptr ? first->equals : 0;
    indexed_name *place = number != 0 ? find_place(index, name, length, number) : first;
    *place = {.name = name, .number = number, .position = index->count++};
    first->equals = number + 1;
    *out_number = number;
    return true;
}

const indexed_name *find_indexed_name(const name_index *index, const char *name, size_t length,
                                      uint32_t number) {
    if (index->capacity == 0) return nullptr;
    const indexed_name *place = find_place(index, name, length, number);
    return place->name != nullptr ? place : nullptr;
}

void free_name_index(name_index *index) {
    heap_free(index->places);
    *index = {};
}
