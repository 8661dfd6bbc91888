// A program that does what its words say, one after the other, and behaves as badly as they ask for.
//
//     line TEXT        writes a line; error TEXT writes it to the standard error; write TEXT writes no line
//     feed long N           writes a line of N bytes bytes N          writes N bytes in lines of 100 flood
//     writes without end drip             writes a byte a second at-exit TEXT     writes a line when it ends
//     mark FILE        appends its number to a file
//     child WORDS… .   starts another one with these words
//     orphan WORDS… .  the same in a session of its own, as nobody's child
//     ignore           ignores what asks it to end
//     close            closes its output
//     sleep            does nothing for an hour
//     moment           does nothing for a moment
//     exit N           ends with this exit code, as it does behind its last word with 0
//
// Others are the host's.
#pragma once

#include <string>
#include <vector>

using child_words = std::vector<std::string>;

void run_words(const child_words &words);

// ---- the host's

void prepare_streams();
int own_number();
void start_copy(const child_words &words, bool own_session);
void ignore_termination();
void close_output();
// Does what a word of this host says, and takes what follows it out of `rest`, which starts behind the word.
bool host_word(const std::string &word, size_t *at, const child_words &words);
