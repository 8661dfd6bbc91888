// Small helpers for zero-terminated texts and the numbers in them.
#pragma once

#include <cstddef>
#include <cstdint>

// A new copy that the caller frees with heap_free; absent when memory is out or `text` is absent.
char *text_copy(const char *text);

// A new copy of the first `length` bytes, terminated.
char *text_copy_part(const char *text, size_t length);

// Frees what `*slot` holds and puts `text`, which it then owns, in its place.
void text_replace(char **slot, char *text);

bool text_equal(const char *a, const char *b);
// Without regard to the case of A to Z.
bool text_equal_folded(const char *a, const char *b);

bool text_starts_with(const char *text, const char *start);

// The same number for equal texts, and seldom for others: for tables that find a record by its key.
uint32_t text_hash(const char *text);

// Lowers A to Z, whatever the locale.
char to_lower(char c);

// Lowers A to Z in place and returns the text.
char *text_to_lower(char *text);

// Copies at most `size` - 1 characters and terminates, unless `size` is 0.
void copy_bounded(char *target, const char *source, size_t size);

// As atoi: white space, a sign, decimal digits; 0 without digits, wrapped to 32 bits.
int32_t parse_atoi(const char *text);

// With a base prefix: "0x" hexadecimal, "0" octal, otherwise decimal; wrapped to 32 bits. Gives 0 without
// digits. `out_end`, if not absent, is set behind the last character read (at `text` without digits).
int32_t parse_number(const char *text, const char **out_end = nullptr);

// A 64-bit integer with the same base prefixes.
int64_t parse_int64(const char *text);

// Skips white space and reads decimal digits, without an overflow check. `out_end`, if not absent, is set to
// the first other character.
uint64_t parse_decimal(const char *text, const char **out_end);

// Writes `value` with binary scaling, two decimals and a letter k, M or G: "%s %6.2fk%s". Returns the length
// of the whole text, which is cut at `size` - 1 characters.
int format_scaled(const char *prefix, double value, const char *suffix, char *buffer, size_t size);

bool is_nan(double x);
bool is_finite(double x);

// Space, tab, line feed, vertical tab, form feed and carriage return, whatever the locale.
bool is_blank(char c);
