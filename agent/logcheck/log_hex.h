// The hexadecimal form in which samples of a log are stored as variables.
//
// Two upper-case digits a byte, high one first, with a quirk that stored values rely on: of a byte of 0x80 or
// more the high digit is one of the eight characters ahead of the digits, by high nibble 8 to F: 'g', blank,
// '\'', '%', 'c', '\'', and twice the zero that ends a text. So a stored sample ends at its first byte of
// 0xE0 or more, and one with a byte from 0x80 to 0xDF cannot be read back.
#pragma once

#include <cstddef>

// Writes `2 * length + 1` characters at most.
void log_hex_encode(const char *bytes, size_t length, char *out);

// The count of bytes, `size` at most; 0 for a text of another form. The digits A to F count only 0 to 5 as
// high ones, which no encoder writes.
size_t log_hex_decode(const char *text, char *out, size_t size);
