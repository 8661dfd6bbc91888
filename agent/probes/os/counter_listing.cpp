// The names of the provider's objects and counters, and what it has at a detail level.
#include "probes/os/counter_provider.h"

#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/perf_counter_ops.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t ERROR_FILE_NOT_FOUND = 2;

// A list of texts in a buffer of the caller. What no longer fits is counted, so that the caller learns how
// much it takes.
struct name_list {
    char *buffer; // may be absent
    uint32_t size;
    uint32_t used;
};

} // namespace

// Objects and counters are numbered as they stand in their table, by even numbers from 2 on. A name that
// several of them share has several numbers.
static const char *numbered_name(uint32_t number) {
    for (const counter_object *object : counter_objects) {
        if (number == 0) return object->name;
        number--;
        if (number < object->counters.size()) return object->counters[number].name;
        number -= static_cast<uint32_t>(object->counters.size());
    }
    return nullptr;
}

// The first number of a name; false where there is none.
static bool find_number(const char *name, uint32_t *out) {
    uint32_t number = 0;
    for (const counter_object *object : counter_objects) {
        bool found = text_equal(object->name, name);
        for (size_t i = 0; i < object->counters.size() && !found; i++) {
            number++;
            found = text_equal(object->counters[i].name, name);
        }
        *out = number++;
        if (found) return true;
    }
    return false;
}

static void add_name(name_list *list, const char *name) {
    auto length = static_cast<uint32_t>(strlen(name)) + 1;
    if (list->buffer != nullptr && length <= list->size && list->used <= list->size - length)
        memcpy(list->buffer + list->used, name, length);
    list->used += length;
}

// Ends the list and says whether all of it is there.
static uint32_t finish_list(name_list *list, uint32_t *out_size) {
    add_name(list, "");
    bool fits = list->buffer != nullptr && list->used <= list->size;
    *out_size = list->used;
    return fits ? PDH_OK : PDH_MORE_DATA;
}

uint32_t provider_name_by_index(uint32_t index, char *name, uint32_t *size) {
    const char *found = index >= 2 && index % 2 == 0 ? numbered_name(index / 2 - 1) : nullptr;
    if (found == nullptr) return PDH_INVALID_ARGUMENT;
    auto needed = static_cast<uint32_t>(strlen(found)) + 1;
    bool fits = needed <= *size;
    copy_bounded(name, found, *size);
    *size = needed;
    return fits ? PDH_OK : PDH_MORE_DATA;
}

uint32_t provider_index_by_name(const char *name, uint32_t *out_index) {
    uint32_t number = 0;
    if (!find_number(name, &number)) return PDH_STRING_NOT_FOUND;
    *out_index = 2 * (number + 1);
    return PDH_OK;
}

uint32_t provider_query_value(const char *name, char *buffer, uint32_t *size) {
    if (!text_equal(name, "Counter 009")) return ERROR_FILE_NOT_FOUND;
    name_list list = {.buffer = buffer, .size = *size, .used = 0};
    const char *entry = nullptr;
    for (uint32_t number = 0; (entry = numbered_name(number)) != nullptr; number++) {
        char index[16];
        snprintf(index, sizeof index, "%u", 2 * (number + 1));
        add_name(&list, index);
        add_name(&list, entry);
    }
    return finish_list(&list, size) == PDH_OK ? PDH_OK : ERROR_MORE_DATA;
}

static bool has_counters(const counter_object *object, uint32_t detail) {
    for (const counter_row &row : object->counters)
        if (row.detail <= detail) return true;
    return false;
}

uint32_t provider_enum_objects(char *objects, uint32_t *size, uint32_t detail, bool) {
    if (size == nullptr) return PDH_INVALID_ARGUMENT;
    name_list list = {.buffer = objects, .size = *size, .used = 0};
    for (const counter_object *object : counter_objects)
        if (has_counters(object, detail)) add_name(&list, object->name);
    return finish_list(&list, size);
}

static void add_instances(name_list *list, const char *instances) {
    for (const char *name = instances; *name != '\0';) {
        add_name(list, name);
        name += strlen(name) + 1; // its key
        name += strlen(name) + 1;
    }
}

// The call for the sizes looks at the host; the one for the lists gives what was found then, or else a
// process that came between them would fail it. An object that has no instance now has nothing to count.
uint32_t provider_enum_object_items(const char *object, char *counters, uint32_t *counter_size,
                                    char *instances, uint32_t *instance_size, uint32_t detail) {
    if (object == nullptr || counter_size == nullptr || instance_size == nullptr) return PDH_INVALID_ARGUMENT;
    const counter_object *found = find_counter_object(object);
    if (found == nullptr) return PDH_CSTATUS_NO_OBJECT;
    name_list counter_list = {.buffer = counters, .size = *counter_size, .used = 0};
    name_list instance_list = {.buffer = instances, .size = *instance_size, .used = 0};
    bool any = true;
    if (found->list_instances != nullptr) {
        const char *names = list_counter_instances(found, instances == nullptr);
        any = names != nullptr && *names != '\0';
        if (any) add_instances(&instance_list, names);
    }
    for (const counter_row &row : found->counters)
        if (any && row.detail <= detail) add_name(&counter_list, row.name);
    uint32_t counter_status = finish_list(&counter_list, counter_size);
    uint32_t instance_status = finish_list(&instance_list, instance_size);
    return counter_status != PDH_OK ? counter_status : instance_status;
}
