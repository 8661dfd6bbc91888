// The start of a program by its command line.
#pragma once

struct output_pipe;
struct started_program;

// Absent, or the words for what is wrong: with the command line, or the host's own. The rest is as in
// custom_ops::CreateProcessA. Errors of the host that would ask somebody at a screen are turned off.
[[nodiscard]] const char *start_program(const char *command, output_pipe *output, started_program **out);

// Turns them off; a run does so ahead of everything else.
void set_program_error_mode();
