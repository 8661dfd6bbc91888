#include "settings/value_list.h"

#include "platform/text.h"

#include <cstring>

void free_values(value_list *list) {
    for (uint32_t i = 0; i < list->count; i++) {
        heap_free(list->values[i].key);
        heap_free(list->values[i].value);
    }
    heap_free(list->values);
    *list = {};
}

file_value *find_value(value_list *list, const char *key) {
    for (uint32_t i = 0; i < list->count; i++) {
        uint32_t place = (list->cursor + i) % list->count;
        if (!text_equal(list->values[place].key, key)) continue;
        list->cursor = place + 1;
        return &list->values[place];
    }
    return nullptr;
}

static bool make_room(value_list *list) {
    if (list->count < list->capacity) return true;
    uint32_t capacity = list->capacity != 0 ? 2 * list->capacity : 32;
    auto *values = static_cast<file_value *>(heap_alloc(capacity * sizeof(file_value)));
    if (values == nullptr) return false;
    if (list->count != 0) memcpy(values, list->values, list->count * sizeof(file_value));
    heap_free(list->values);
    list->values = values;
    list->capacity = capacity;
    return true;
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
    list->values[list->count++] = {.key = new_key.release(), .value = new_value.release()};
    return true;
}
