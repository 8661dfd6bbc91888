// The words of a command line, split as a shell's user expects and without a shell.
//
// Blanks divide words. Single quotes keep what is between them as it is. A backslash keeps the character
// behind it; within double quotes it does so ahead of a double quote, a backslash, a dollar sign and a
// backquote, and stands for itself elsewhere. Nothing else has a meaning: no variables, patterns, pipes or
// redirections.
#pragma once

#include "platform/heap.h"

#include <cstddef>

// One block: the words, ended by an absent one, and their characters.
struct command_words {
    size_t count;
    char *words[];
};

// The words in a new block for heap_free. There is at least one, and the first is not empty.
[[nodiscard]] const char *split_command(const char *command, command_words **out);

using command_words_guard = guard<command_words, heap_free>;
