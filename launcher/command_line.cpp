#include "launcher/command_line.h"

#include "platform/heap.h"

#include <cstring>

static bool needs_quotes(const char *word) {
    return *word == '\0' || strpbrk(word, " \t\n\v\"") != nullptr;
}

// A backslash stands for itself, unless there is nothing but backslashes between it and a quotation mark:
// there each of them is doubled, and a mark of the word's own gets one of its own.
static char *put_quoted(char *at, const char *word) {
    size_t backslashes = 0;
    *at++ = '"';
    for (; *word != '\0'; word++) {
        size_t more = *word == '"' ? backslashes + 1 : 0;
        memset(at, '\\', more);
        at += more;
        backslashes = *word == '\\' ? backslashes + 1 : 0;
        *at++ = *word;
    }
    memset(at, '\\', backslashes);
    at += backslashes;
    *at++ = '"';
    return at;
}

static char *put_word(char *at, const char *word) {
    if (needs_quotes(word)) return put_quoted(at, word);
    size_t length = strlen(word);
    memcpy(at, word, length);
    return at + length;
}

char *join_words(const char *const *words) {
    size_t room = 1;
    for (const char *const *word = words; *word != nullptr; word++)
        room += 2 * strlen(*word) + 3; // each byte doubled, two marks and a blank
    auto *text = static_cast<char *>(heap_alloc(room));
    if (text == nullptr) return nullptr;
    char *at = text;
    for (const char *const *word = words; *word != nullptr; word++) {
        if (word != words) *at++ = ' ';
        at = put_word(at, *word);
    }
    return text;
}
