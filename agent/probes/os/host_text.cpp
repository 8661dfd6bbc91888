#include "probes/os/host_text.h"

#include <cstring>

const char *next_line(const char *at) {
    const char *end = strchr(at, '\n');
    return end != nullptr ? end + 1 : nullptr;
}

const char *find_line(const char *text, const char *key) {
    size_t length = strlen(key);
    for (const char *behind = nullptr; (behind = next_line(text)) != nullptr; text = behind)
        if (strncmp(text, key, length) == 0) return text + length;
    return nullptr;
}

bool read_number(const char **at, uint64_t *out) {
    const char *digit = *at + strspn(*at, " \t");
    *at = digit;
    uint64_t number = 0;
    for (; *digit >= '0' && *digit <= '9'; digit++) {
        auto next = static_cast<uint64_t>(*digit - '0');
        if (number > (UINT64_MAX - next) / 10) return false;
        number = number * 10 + next;
    }
    if (digit == *at) return false;
    *at = digit;
    *out = number;
    return true;
}

bool read_keyed(const char *text, const char *key, uint64_t *out) {
    const char *at = find_line(text, key);
    return at != nullptr && read_number(&at, out);
}
