// The command line of tnlauncher.
#pragma once

extern const char *const USAGE;
extern const char *const SERVICE_USAGE; // more of it, on a host that keeps a register of its services

struct launcher_options {
    bool help;
    bool install; // this and the next only where the host keeps a register of its services
    bool uninstall;
    const char *folder;  // absent for the usual one
    const char *program; // absent for the one beside the launcher
    char **agent_words;  // what the agent gets behind the launcher's own words, ended by an absent one
};

// Absent, or what is wrong with the arguments. The texts stay those of `argv`.
[[nodiscard]] const char *parse_options(int argc, char **argv, launcher_options *out);
