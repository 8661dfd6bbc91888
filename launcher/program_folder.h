// The folder with the agent's program: which file is started, and how an upgrade takes its place.
//
// All names are relative to the working directory, which is that folder and nobody else's:
//
//     tnagent       the program that is started
//     tnagent.bak   the one before it, which has proven itself
//     upgrade       a new one, put there whole and by one rename
//     trial         the program is new and has not proven itself; how often it was started, a digit
//     *.tmp         never more than a part of something
//
// Every step is one rename that has reached the disk before the next one begins, so that a cut of power
// leaves a state of this table, and the next start goes on from there (P is a proven program, N a new one):
//
//     trial  program  backup  upgrade   what it means                        what the next start does
//     -      P        any     -         the usual                            starts P
//     -      P        any     N         an upgrade has come                  1. P becomes the backup
//     -      -        P       N         step 1 is done                       2. makes the mark of the trial
//     yes    -        P       N         step 2 is done                       3. N becomes the program
//     yes    N        P       -         step 3 is done: the trial            counts, starts N
//     yes    N        P       N'        N has fetched a further one          step 3 with N', counts afresh
//     yes    N        P       -         N died, or has had its starts        4. P becomes the program again
//     yes    P        -       any       step 4 is done                       5. removes the mark, starts P
//     -      N        P       -         N has proven itself: the usual
//     -      -        P       -         a step has failed on a sick disk     step 4
//     -      -        -       any       a new folder                         copies the installed program
#pragma once

// A new program gets so many starts. They end early when it dies; what uses them up is a host or a launcher
// that goes down each time.
inline constexpr int TRIAL_STARTS = 3;

struct program_choice {
    bool trial;          // the program has not proven itself
    bool upgrade_failed; // the launcher has gone back to it
};

// Brings the folder into a state in which the program can be started. `installed` is the path of the program
// to copy into an empty folder. Steps that fail are told, and an older program serves; the failure that is
// returned is that of a folder without any program.
[[nodiscard]] const char *choose_program(const char *installed, program_choice *out);

// The file to start.
const char *program_file();

// Whether a new program lies ready.
bool upgrade_waits();

// The new program works.
[[nodiscard]] const char *end_trial();

// The new program does not work: the one before it takes its place again.
[[nodiscard]] const char *roll_back();

// The new program was stopped on demand, before it could prove itself: this start does not count.
[[nodiscard]] const char *excuse_trial();
