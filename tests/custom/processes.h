// Processes and threads of the real host, as a test looks at them.
#pragma once

// Whether the process of this number is there and has not ended.
bool process_lives(int number);
// Ends one that a test has brought about.
void end_process(int number);
// Of this process. Those that have ended and are not collected count.
int count_threads();
int count_children();
// Whether a program's output stays open behind its own close: Wine has a second hold of it until the end.
bool keeps_closed_output();
