// The programs that the agent starts on Linux.
//
// A run's program has a keeper between itself and the agent: a small process to which the kernel gives all of
// the program's descendants whose parents have gone, whatever sessions they have made. So a kill reaches each
// of them, and when the keeper is let go, those that live on are the system's, and not the agent's to
// collect.
#pragma once

#include <cstdint>

struct started_program;

// Starts it with `output` as its standard output and error. Absent, with errno, behind a failure.
started_program *start_kept(const char *const *words, int output);

// Starts it in a session of its own, as a child of the system, on /dev/null. False, with errno.
bool start_released(const char *const *words);

// Readable when the program has ended, or nobody can tell any more.
int end_of_program(const started_program *program);

// False where nobody can tell. 128 and the signal's number for a program that a signal has ended.
bool exit_code_of_program(started_program *program, uint32_t *out);

void kill_program_tree(started_program *program);
void release_program(started_program *program);
