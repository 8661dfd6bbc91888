#include "settings/places.h"

#include <cstdlib>
#include <unistd.h>

static void find(places *out) {
    unix_user user = {
        .is_root = geteuid() == 0,
        .home = getenv("HOME"),
        .config_home = getenv("XDG_CONFIG_HOME"),
        .state_home = getenv("XDG_STATE_HOME"),
        .runtime_home = getenv("XDG_RUNTIME_DIR"),
        .configuration_directory = getenv("CONFIGURATION_DIRECTORY"),
        .state_directory = getenv("STATE_DIRECTORY"),
        .logs_directory = getenv("LOGS_DIRECTORY"),
        .runtime_directory = getenv("RUNTIME_DIRECTORY"),
        .user_id = geteuid(),
    };
    unix_places(&user, out);
}

const places_ops places_ops_host = {.find = find};
