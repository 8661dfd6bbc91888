// The text of a variables file.

#include "platform/agent_log.h"
#include "platform/text.h"
#include "settings/value_list.h"

#include <cstdio>
#include <cstring>

static bool is_control(char c) {
    return (c >= '\0' && c < ' ') || c == '\x7f';
}

static size_t escaped_size(const char *text) {
    size_t size = 0;
    for (; *text != '\0'; text++)
        size += is_control(*text) ? 4 : *text == '\\' ? 2 : 1;
    return size;
}

static char letter_of(char c) {
    switch (c) {
    case '\\':
        return '\\';
    case '\t':
        return 't';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    default:
        return '\0';
    }
}

static char *print_escaped(char *out, const char *text) {
    static constexpr char digits[] = "0123456789abcdef";
    for (; *text != '\0'; text++) {
        char letter = letter_of(*text);
        if (letter != '\0') {
            *out++ = '\\';
            *out++ = letter;
        } else if (is_control(*text)) {
            auto byte = static_cast<unsigned char>(*text);
            *out++ = '\\';
            *out++ = 'x';
            *out++ = digits[byte >> 4];
            *out++ = digits[byte & 15];
        } else {
            *out++ = *text;
        }
    }
    return out;
}

char *print_variables(const value_list *list) {
    size_t size = 1;
    for (uint32_t i = 0; i < list->count; i++)
        size += escaped_size(list->values[i].key) + escaped_size(list->values[i].value) + 2;
    auto *text = static_cast<char *>(heap_alloc(size));
    if (text == nullptr) return nullptr;
    char *out = text;
    for (uint32_t i = 0; i < list->count; i++) {
        out = print_escaped(out, list->values[i].key);
        *out++ = '\t';
        out = print_escaped(out, list->values[i].value);
        *out++ = '\n';
    }
    *out = '\0';
    return text;
}

static int hex_digit(char c) {
    static constexpr char digits[] = "0123456789abcdef0123456789ABCDEF";
    const char *found = c != '\0' ? strchr(digits, c) : nullptr;
    return found != nullptr ? static_cast<int>((found - digits) & 15) : -1;
}

// The byte behind a backslash; moves `*at` to its last character. 0 for what is no escape.
static char parse_escape(const char **at) {
    switch (*++*at) {
    case '\\':
        return '\\';
    case 't':
        return '\t';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 'x': {
        int high = hex_digit((*at)[1]);
        int low = high >= 0 ? hex_digit((*at)[2]) : -1;
        if (low < 0) return '\0';
        *at += 2;
        return static_cast<char>(high * 16 + low);
    }
    default:
        return '\0';
    }
}

// Takes the escapes out in place. False for a bad one.
static bool unescape(char *text) {
    char *out = text;
    for (const char *at = text; *at != '\0'; at++) {
        char c = *at;
        if (c == '\\') {
            c = parse_escape(&at);
            if (c == '\0') return false;
        }
        *out++ = c;
    }
    *out = '\0';
    return true;
}

// False when memory is out; a bad line is only told.
static bool take_line(char *line, uint32_t number, const char *path, value_list *out) {
    char *tab = strchr(line, '\t');
    if (tab != nullptr) *tab = '\0';
    if (tab == nullptr || !unescape(line) || !unescape(tab + 1)) {
        agent_log(LOG_WARNING, "%s, line %u: no variable, passed over", path, number);
        return true;
    }
    return set_value(out, line, tab + 1);
}

bool parse_variables(const char *text, size_t length, const char *path, value_list *out) {
    const char *end = text + length;
    for (uint32_t number = 1; text < end; number++) {
        const auto *stop = static_cast<const char *>(memchr(text, '\n', static_cast<size_t>(end - text)));
        if (stop == nullptr) stop = end;
        text_guard line(text_copy_part(text, static_cast<size_t>(stop - text)));
        if (line == nullptr || !take_line(line.get(), number, path, out)) return false;
        text = stop + 1;
    }
    return true;
}
