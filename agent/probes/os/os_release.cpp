#include "probes/os/os_release.h"

#include <cstring>

// Copies up to the closing quote, or to the end of the line. A backslash takes the next character as it
// stands, except between single quotes.
static void copy_value(const char *at, char *out, size_t size) {
    char quote = *at == '"' || *at == '\'' ? *at++ : '\0';
    size_t length = 0;
    for (; *at != '\0' && *at != '\n' && length + 1 < size; at++) {
        if (quote != '\0' ? *at == quote : *at == ' ' || *at == '\t') break;
        if (*at == '\\' && quote != '\'' && at[1] != '\0' && at[1] != '\n') at++;
        out[length++] = *at;
    }
    out[length] = '\0';
}

bool parse_os_release(const char *text, char *out, size_t size) {
    static constexpr char KEY[] = "PRETTY_NAME=";
    out[0] = '\0';
    for (const char *line = text; *line != '\0'; line += strcspn(line, "\n"), line += *line == '\n')
        if (strncmp(line, KEY, sizeof KEY - 1) == 0) copy_value(line + sizeof KEY - 1, out, size);
    return out[0] != '\0';
}
