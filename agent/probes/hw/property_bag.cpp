#include "probes/hw/property_bag.h"

#include "platform/text.h"

#include <algorithm>
#include <cstring>

struct byte_array {
    uint32_t count;
    uint8_t *bytes; // in the same block
};

namespace {

constexpr uint32_t PROPERTY_LIMIT = 8; // a call has six parameters and three outputs
constexpr size_t NAME_SIZE = 32;

struct property {
    char name[NAME_SIZE];
    wmi_value value;
};

struct property_bag {
    property properties[PROPERTY_LIMIT];
    uint32_t count;
};

property_bag *bag_of(wmi_object *object) {
    return reinterpret_cast<property_bag *>(object);
}

char *text_of(wide_text *text) {
    return reinterpret_cast<char *>(text);
}

} // namespace

wmi_object *alloc_property_bag() {
    return reinterpret_cast<wmi_object *>(heap_new<property_bag>());
}

void free_property_bag(wmi_object *object) {
    if (object == nullptr) return;
    property_bag *bag = bag_of(object);
    for (uint32_t i = 0; i < bag->count; i++)
        bag_clear_value(&bag->properties[i].value);
    heap_free(bag);
}

static property *find_property(wmi_object *object, const char *name) {
    property_bag *bag = bag_of(object);
    for (uint32_t i = 0; i < bag->count; i++)
        if (text_equal(bag->properties[i].name, name)) return &bag->properties[i];
    return nullptr;
}

static bool copy_value(const wmi_value *from, wmi_value *to) {
    *to = *from;
    if (from->type == VALUE_BSTR) {
        to->text = bag_alloc_text(text_of(from->text));
        return to->text != nullptr;
    }
    if (from->type != VALUE_UI1_ARRAY) return true;
    to->bytes = bag_create_vector(from->bytes->count);
    if (to->bytes == nullptr) return false;
    memcpy(to->bytes->bytes, from->bytes->bytes, from->bytes->count);
    return true;
}

uint32_t bag_put(wmi_object *object, const char *name, wmi_value *value) {
    property *slot = find_property(object, name);
    property_bag *bag = bag_of(object);
    if (slot == nullptr && bag->count == PROPERTY_LIMIT) return WBEM_NO_MEMORY;
    wmi_value copy;
    if (!copy_value(value, &copy)) return WBEM_NO_MEMORY;
    if (slot == nullptr) {
        slot = &bag->properties[bag->count++];
        copy_bounded(slot->name, name, sizeof slot->name);
    } else {
        bag_clear_value(&slot->value);
    }
    slot->value = copy;
    return WBEM_OK;
}

uint32_t bag_get(wmi_object *object, const char *name, wmi_value *value) {
    const property *found = find_property(object, name);
    if (found == nullptr) return WBEM_NOT_FOUND;
    wmi_value copy;
    if (!copy_value(&found->value, &copy)) return WBEM_NO_MEMORY;
    *value = copy;
    return WBEM_OK;
}

wide_text *bag_alloc_text(const char *text) {
    return reinterpret_cast<wide_text *>(text_copy(text));
}

void bag_free_text(wide_text *text) {
    heap_free(text);
}

void bag_clear_value(wmi_value *value) {
    if (value->type == VALUE_BSTR) bag_free_text(value->text);
    if (value->type == VALUE_UI1_ARRAY) heap_free(value->bytes);
    *value = {};
}

byte_array *bag_create_vector(uint32_t count) {
    auto *array = static_cast<byte_array *>(heap_alloc(sizeof(byte_array) + count));
    if (array == nullptr) return nullptr;
    array->count = count;
    array->bytes = reinterpret_cast<uint8_t *>(array + 1);
    return array;
}

uint32_t bag_put_element(byte_array *array, int32_t index, uint8_t byte) {
    if (index < 0 || static_cast<uint32_t>(index) >= array->count) return WBEM_BAD_INDEX;
    array->bytes[index] = byte;
    return WBEM_OK;
}

uint32_t bag_access_data(byte_array *array, const uint8_t **bytes, uint32_t *count) {
    *bytes = array->bytes;
    *count = array->count;
    return WBEM_OK;
}

uint32_t bag_put_byte(wmi_object *bag, const char *name, uint8_t byte) {
    wmi_value value = {.type = VALUE_UI1};
    value.byte = byte;
    return bag_put(bag, name, &value);
}

uint32_t bag_put_number(wmi_object *bag, const char *name, int32_t number) {
    wmi_value value = {.type = VALUE_I4};
    value.number = number;
    return bag_put(bag, name, &value);
}

uint32_t bag_put_bytes(wmi_object *bag, const char *name, const uint8_t *bytes, uint32_t count) {
    wmi_value value = {.type = VALUE_UI1_ARRAY};
    value.bytes = bag_create_vector(count);
    if (value.bytes == nullptr) return WBEM_NO_MEMORY;
    std::copy_n(bytes, count, value.bytes->bytes);
    uint32_t status = bag_put(bag, name, &value);
    bag_clear_value(&value);
    return status;
}

static const wmi_value *find_value(wmi_object *bag, const char *name, uint16_t type) {
    const property *found = find_property(bag, name);
    return found != nullptr && found->value.type == type ? &found->value : nullptr;
}

uint8_t bag_byte(wmi_object *bag, const char *name) {
    const wmi_value *value = find_value(bag, name, VALUE_UI1);
    return value != nullptr ? value->byte : uint8_t{0};
}

int32_t bag_number(wmi_object *bag, const char *name) {
    const wmi_value *value = find_value(bag, name, VALUE_I4);
    return value != nullptr ? value->number : 0;
}

const uint8_t *bag_bytes(wmi_object *bag, const char *name, uint32_t *count) {
    const wmi_value *value = find_value(bag, name, VALUE_UI1_ARRAY);
    *count = value != nullptr ? value->bytes->count : 0;
    return value != nullptr ? value->bytes->bytes : nullptr;
}
