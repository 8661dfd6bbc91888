#include "platform/errors.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

const error_ops *error_host;

namespace {

constexpr size_t BUFFER_SIZE = 256;

// A text of 256 characters fills its buffer; the terminator behind it belongs to the reader's safety.
struct error_buffers {
    char text[2][BUFFER_SIZE + 1];
    unsigned selected;
};

thread_local error_buffers buffers;
thread_local char system_words[BUFFER_SIZE];

} // namespace

const char *format_error(const char *format, ...) {
    char *buffer = buffers.text[1 - buffers.selected];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, BUFFER_SIZE + 1, format, arguments);
    va_end(arguments);
    buffers.selected = 1 - buffers.selected;
    return buffer;
}

const char *error_text(uint32_t code) {
    char *words = system_words;
    uint32_t error = 0;
    if (!error_host->FormatMessageA(code, words, sizeof system_words, &error)) {
        snprintf(words, sizeof system_words, "%u (FormatMessage: %u)", code, error);
        return words;
    }
    size_t length = strnlen(words, sizeof system_words - 1);
    while (length > 0 && (words[length - 1] == '\r' || words[length - 1] == '\n'))
        length--;
    words[length] = '\0';
    if (length == 0) snprintf(words, sizeof system_words, "%u", code);
    return words;
}

const char *last_error_text() {
    return error_text(last_error());
}

uint32_t last_error() {
    return error_host->GetLastError();
}
