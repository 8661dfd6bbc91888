// Pairs of key and value in the order of a settings file or a variables file, each key once.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

struct file_value {
    char *key;
    char *value;
};

struct value_list {
    file_value *values;
    uint32_t count;
    uint32_t capacity;
    uint32_t *slots; // an index by key, twice the capacity: the place in `values` and 1, 0 for none
};

void free_values(value_list *list); // leaves it empty

// The value of this key, or absent.
file_value *find_value(const value_list *list, const char *key);

// Sets the value of the key, or appends it. Copies both. False when memory is out, with the list as it was.
bool set_value(value_list *list, const char *key, const char *value);

// Reads a settings file's text: one "key = value" a line, blanks around both cut, "#" starting a comment
// line. A line that is none of these, an unknown key and a key given twice (the last counts) are logged with
// `path` and line when `report` is set. False when memory is out.
bool parse_settings(const char *text, size_t length, const char *path, bool report, value_list *out);

// Reads a variables file's text: one key, tab and value a line, with backslash and control bytes escaped. A
// line that is none of these is logged with `path` and passed over. False when memory is out.
bool parse_variables(const char *text, size_t length, const char *path, value_list *out);

// The text of a variables file, which the caller frees; absent when memory is out.
char *print_variables(const value_list *list);
