// Finding numbers in the texts that a kernel prints about itself, line by line.
//
// A line counts only together with its line feed: of a text that was cut off no half number is read.
#pragma once

#include <cstdint>

// The start of the line behind the one that `at` lies in, or absent behind the last whole line.
const char *next_line(const char *at);

// Behind `key` in the first whole line that begins with it, or absent.
const char *find_line(const char *text, const char *key);

// Skips blanks and tabs and reads a decimal number. False, with `*at` behind the blanks, where none stands or
// it does not fit.
bool read_number(const char **at, uint64_t *out);

// The number behind `key` at the start of a line.
bool read_keyed(const char *text, const char *key, uint64_t *out);
