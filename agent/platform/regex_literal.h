// The bytes that every match of a pattern holds in a row, and the search for them: where they are not, the
// pattern is not either.
#pragma once

#include <cstddef>

inline constexpr size_t LITERAL_LIMIT = 32;

struct regex_literal {
    char bytes[LITERAL_LIMIT];
    size_t length;     // 0 for none
    size_t one, other; // the places of the two bytes that are seldom met elsewhere
};

// The longest such bytes; the first ones of those that are longer than the limit.
regex_literal regex_literal_of(const char *pattern);

bool literal_occurs(const regex_literal *literal, const char *text, size_t length);
