// Reading the ids that a scan has printed and the server sends back.
//
// Each function moves `*text` behind what it has read, and leaves it where it is on failure.
#pragma once

#include <cstdint>

bool read_word(const char **text, const char *word);
// Decimal digits, at least one. False for a number beyond 32 bits.
bool read_number(const char **text, uint32_t *out);
// One or two hexadecimal digits.
bool read_hex_byte(const char **text, uint8_t *out);
