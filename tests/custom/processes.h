// Processes and threads of the real host, as a test looks at them.
#pragma once

// Whether the process of this number is there and has not ended.
bool process_lives(int number);
// Ends one that a test has brought about.
void end_process(int number);
// Of this process. Those that have ended and are not collected count.
int count_threads();
int count_children();
// Wine keeps a program's output open behind the program's own close, and gives a console's input to one that
// was given none.
bool host_is_wine();
