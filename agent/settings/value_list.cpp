#include "settings/value_list.h"

#include "platform/text.h"

#include <cstring>

void free_values(value_list *list) {
    for (uint32_t i = 0; i < list->count; i++) {
        heap_free(list->values[i].key);
        heap_free(list->values[i].value);
    }
    heap_free(list->values);
    heap_free(list->slots);
    *list = {};
}

// The slot of this key, or the empty one where it belongs. The list is at most half full.
static uint32_t *find_slot(const value_list *list, const char *key) {
    uint32_t mask = 2 * list->capacity - 1;
    uint32_t slot = text_hash(key) & mask;
    while (list->slots[slot] != 0 && !text_equal(list->values[list->slots[slot] - 1].key, key))
        slot = (slot + 1) & mask;
    return &list->slots[slot];
}

file_value *find_value(const value_list *list, const char *key) {
    uint32_t place = list->count != 0 ? *find_slot(list, key) : 0;
    return place != 0 ? &list->values[place - 1] : nullptr;
}

static bool make_room(value_list *list) {
    if (list->count < list->capacity) return true;
    value_list larger = {.count = list->count, .capacity = list->capacity != 0 ? 2 * list->capacity : 32};
    larger.values = static_cast<file_value *>(heap_alloc(larger.capacity * sizeof(file_value)));
    larger.slots = static_cast<uint32_t *>(heap_alloc(2 * larger.capacity * sizeof(uint32_t)));
    bool enough = larger.values != nullptr && larger.slots != nullptr;
    if (enough && list->count != 0) memcpy(larger.values, list->values, list->count * sizeof(file_value));
    for (uint32_t i = 0; enough && i < list->count; i++)
        *find_slot(&larger, larger.values[i].key) = i + 1;
    value_list *unused = enough ? list : &larger;
    heap_free(unused->values);
    heap_free(unused->slots);
    if (enough) *list = larger;
    return enough;
}

bool set_value(value_list *list, const char *key, const char *value) {
    text_guard new_value(text_copy(value));
    if (new_value == nullptr) return false;
    if (file_value *found = find_value(list, key)) {
        text_replace(&found->value, new_value.release());
        return true;
    }
    text_guard new_key(text_copy(key));
    if (new_key == nullptr || !make_room(list)) return false;
    *find_slot(list, key) = list->count + 1;
    list->values[list->count++] = {.key = new_key.release(), .value = new_value.release()};
    return true;
}
