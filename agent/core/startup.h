// From the first instruction to the main loop, or to the end of a short-lived mode.
#pragma once

// Parses the options, reads settings and variables, reconciles them, and returns when the main loop can
// begin.
void start_up(int argc, char **argv);
