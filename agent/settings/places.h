// Where the agent keeps what it keeps, where the settings do not say otherwise.
#pragma once

#include <cstddef>

inline constexpr size_t PLACE_SIZE = 1024;

struct places {
    char user_settings[PLACE_SIZE];    // empty for none
    char machine_settings[PLACE_SIZE]; // empty for none
    char variables[PLACE_SIZE];
    char user_variables[PLACE_SIZE]; // in force when a setting was found in the user's hive
    char logfile[PLACE_SIZE];
    char run_folder[PLACE_SIZE];        // of the command channel; empty for none
    char system_run_folder[PLACE_SIZE]; // where an agent of the system would have it; empty for the same
};

struct places_ops {
    void (*find)(places *out);
};

extern const places_ops places_ops_host;
extern const places_ops *places_host;

// What a unix-like host knows about its user and its environment; absent for what is not set.
struct unix_user {
    bool is_root;
    const char *home;
    const char *config_home;             // XDG_CONFIG_HOME
    const char *state_home;              // XDG_STATE_HOME
    const char *runtime_home;            // XDG_RUNTIME_DIR
    const char *configuration_directory; // the service manager's, each a list of folders separated by colons
    const char *state_directory;
    const char *logs_directory;
    const char *runtime_directory;
    unsigned user_id;
};

// The places of such a host: the service manager's folders win; then the system's folders are root's, and
// those of the home folder everybody else's.
void unix_places(const unix_user *user, places *out);

// All of these are valid until the next call.
const places *find_places();
const char *default_logfile();
const char *default_variable_file(bool user_hive);
