#include "probes/hw/id_text.h"

#include "platform/text.h"

#include <cstring>

bool read_word(const char **text, const char *word) {
    if (!text_starts_with(*text, word)) return false;
    *text += strlen(word);
    return true;
}

bool read_number(const char **text, uint32_t *out) {
    const char *at = *text;
    uint64_t number = 0;
    for (; *at >= '0' && *at <= '9'; at++) {
        number = number * 10 + static_cast<uint64_t>(*at - '0');
        if (number > UINT32_MAX) return false;
    }
    if (at == *text) return false;
    *text = at;
    *out = static_cast<uint32_t>(number);
    return true;
}

static int hex_digit(char c) {
    char digit = to_lower(c);
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return -1;
}

bool read_hex_byte(const char **text, uint8_t *out) {
    int first = hex_digit((*text)[0]);
    if (first < 0) return false;
    int second = hex_digit((*text)[1]);
    *out = static_cast<uint8_t>(second < 0 ? first : first * 16 + second);
    *text += second < 0 ? 1 : 2;
    return true;
}
