// Objects whose properties are values by name: what stands for a method's parameters and outputs on a host
// without WMI.
//
// The functions are those of ipmi_channel_ops with the same names, and keep their promises.
#pragma once

#include "platform/heap.h"
#include "probes/hw/ipmi_channel_ops.h"

// An empty bag, absent when memory is out.
wmi_object *alloc_property_bag();
// Takes absent.
void free_property_bag(wmi_object *bag);

using property_bag_guard = guard<wmi_object, free_property_bag>;

// Puts a copy. WBEM_NO_MEMORY where there is no room.
uint32_t bag_put(wmi_object *bag, const char *name, wmi_value *value);
// Gives a copy. WBEM_NOT_FOUND where nothing was put under the name, which compares exactly.
uint32_t bag_get(wmi_object *bag, const char *name, wmi_value *value);

wide_text *bag_alloc_text(const char *text);
void bag_free_text(wide_text *text);
void bag_clear_value(wmi_value *value);

byte_array *bag_create_vector(uint32_t count);
uint32_t bag_put_element(byte_array *array, int32_t index, uint8_t byte);
uint32_t bag_access_data(byte_array *array, const uint8_t **bytes, uint32_t *count);

// Puts a byte, a number, and a vector with a copy of the bytes.
uint32_t bag_put_byte(wmi_object *bag, const char *name, uint8_t byte);
uint32_t bag_put_number(wmi_object *bag, const char *name, int32_t number);
uint32_t bag_put_bytes(wmi_object *bag, const char *name, const uint8_t *bytes, uint32_t count);

// What was put under the name; 0 or no bytes where that is of another type or missing.
uint8_t bag_byte(wmi_object *bag, const char *name);
int32_t bag_number(wmi_object *bag, const char *name);
const uint8_t *bag_bytes(wmi_object *bag, const char *name, uint32_t *count);
