#include "platform/text.h"

#include "platform/heap.h"

#include <cmath>
#include <cstdio>
#include <cstring>

char *text_copy(const char *text) {
    return text != nullptr ? text_copy_part(text, strlen(text)) : nullptr;
}

char *text_copy_part(const char *text, size_t length) {
    auto *copy = static_cast<char *>(heap_alloc(length + 1));
    if (copy != nullptr && length != 0) memcpy(copy, text, length);
    return copy;
}

void text_replace(char **slot, char *text) {
    heap_free(*slot);
    *slot = text;
}

bool text_equal(const char *a, const char *b) {
    return a != nullptr && b != nullptr && strcmp(a, b) == 0;
}

bool text_starts_with(const char *text, const char *start) {
    return strncmp(text, start, strlen(start)) == 0;
}

// The 32-bit FNV-1a hash.
uint32_t text_hash(const char *text) {
    uint32_t hash = 2166136261U;
    for (; *text != '\0'; text++)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    return hash;
}

char to_lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char *text_to_lower(char *text) {
    for (char *c = text; *c != '\0'; c++)
        *c = to_lower(*c);
    return text;
}

bool text_equal_folded(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) return false;
    while (*a != '\0' && to_lower(*a) == to_lower(*b)) {
        a++;
        b++;
    }
    return to_lower(*a) == to_lower(*b);
}

void copy_bounded(char *target, const char *source, size_t size) {
    if (size == 0) return;
    size_t length = strnlen(source, size - 1);
    memcpy(target, source, length);
    target[length] = '\0';
}

bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

static int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 99;
}

static int base_of(const char **digits) {
    const char *text = *digits;
    if (text[0] != '0') return 10;
    if ((text[1] != 'x' && text[1] != 'X') || digit_value(text[2]) >= 16) return 8;
    *digits += 2;
    return 16;
}

// Base 0 takes the base from the prefix. Overflow wraps.
static uint64_t parse_signed(const char *text, int base, const char **out_end) {
    const char *at = text;
    while (is_blank(*at))
        at++;
    bool negative = *at == '-';
    if (*at == '-' || *at == '+') at++;
    if (base == 0) base = base_of(&at);
    const char *digits = at;
    uint64_t value = 0;
    for (; digit_value(*at) < base; at++)
        value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digit_value(*at));
    if (out_end != nullptr) *out_end = at == digits ? text : at;
    return negative ? 0 - value : value;
}

int32_t parse_atoi(const char *text) {
    return static_cast<int32_t>(static_cast<uint32_t>(parse_signed(text, 10, nullptr)));
}

int32_t parse_number(const char *text, const char **out_end) {
    return static_cast<int32_t>(static_cast<uint32_t>(parse_signed(text, 0, out_end)));
}

int64_t parse_int64(const char *text) {
    return static_cast<int64_t>(parse_signed(text, 0, nullptr));
}

uint64_t parse_decimal(const char *text, const char **out_end) {
    while (is_blank(*text))
        text++;
    uint64_t value = 0;
    for (; *text >= '0' && *text <= '9'; text++)
        value = value * 10 + static_cast<uint64_t>(*text - '0');
    if (out_end != nullptr) *out_end = text;
    return value;
}

int format_scaled(const char *prefix, double value, const char *suffix, char *buffer, size_t size) {
    constexpr double kilo = 1024.0;
    constexpr double mega = kilo * kilo;
    constexpr double giga = mega * kilo;
    if (value >= giga) return snprintf(buffer, size, "%s %6.2fG%s", prefix, value / giga, suffix);
    if (value >= mega) return snprintf(buffer, size, "%s %6.2fM%s", prefix, value / mega, suffix);
    if (value >= kilo) return snprintf(buffer, size, "%s %6.2fk%s", prefix, value / kilo, suffix);
    return snprintf(buffer, size, "%s %6.2f%s", prefix, value, suffix);
}

bool is_nan(double x) {
    return std::isnan(x);
}

bool is_finite(double x) {
    return std::isfinite(x);
}
