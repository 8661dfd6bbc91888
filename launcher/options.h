// The command line of tnlauncher.
#pragma once

extern const char *const USAGE;

struct launcher_options {
    bool help;
    const char *folder;  // absent for the usual one
    const char *program; // absent for the one beside the launcher
    char **agent_words;  // what the agent gets behind the launcher's own words, ended by an absent one
};

// Absent, or what is wrong with the arguments. The texts stay those of `argv`.
[[nodiscard]] const char *parse_options(int argc, char **argv, launcher_options *out);
