#include "custom/command_words.h"

#include "platform/text.h"

#include <cstring>

namespace {

// Reads from `at` and writes the characters that are left of a word to `to`.
struct splitter {
    const char *at;
    char *to;

    const char *take_word();
    const char *take_part();
    const char *take_single_quoted();
    const char *take_double_quoted();
    const char *take_escaped();
};

const char *splitter::take_single_quoted() {
    const char *end = strchr(++at, '\'');
    if (end == nullptr) return "A single quote in the command line has no end";
    while (at != end)
        *to++ = *at++;
    at++;
    return nullptr;
}

const char *splitter::take_double_quoted() {
    for (at++; *at != '"'; *to++ = *at++) {
        if (*at == '\\' && at[1] != '\0' && strchr("\"\\$`", at[1]) != nullptr) at++;
        if (*at == '\0') return "A double quote in the command line has no end";
    }
    at++;
    return nullptr;
}

const char *splitter::take_escaped() {
    if (at[1] == '\0') return "A backslash ends the command line";
    *to++ = at[1];
    at += 2;
    return nullptr;
}

const char *splitter::take_part() {
    if (*at == '\'') return take_single_quoted();
    if (*at == '"') return take_double_quoted();
    if (*at == '\\') return take_escaped();
    *to++ = *at++;
    return nullptr;
}

const char *splitter::take_word() {
    while (*at != '\0' && !is_blank(*at))
        if (auto *failure = take_part()) return failure;
    *to++ = '\0';
    return nullptr;
}

} // namespace

// A word takes one character and one blank at least, so that half as many words as characters have room. The
// characters that are left of the words are never more than the line has, with an end for each.
static command_words *alloc_words(size_t length) {
    size_t most = length / 2 + 1;
    return static_cast<command_words *>(
        heap_alloc(sizeof(command_words) + (most + 1) * sizeof(char *) + length + 1));
}

const char *split_command(const char *command, command_words **out) {
    size_t length = strlen(command);
    command_words_guard words(alloc_words(length));
    if (words == nullptr) return "Out of memory";
    splitter split = {.at = command, .to = reinterpret_cast<char *>(words->words + length / 2 + 2)};
    for (;;) {
        while (is_blank(*split.at))
            split.at++;
        if (*split.at == '\0') break;
        words->words[words->count++] = split.to;
        if (auto *failure = split.take_word()) return failure;
    }
    if (words->count == 0 || words->words[0][0] == '\0') return "The command line names no program";
    *out = words.release();
    return nullptr;
}
