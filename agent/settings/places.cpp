#include "settings/places.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

const places_ops *places_host;

static constexpr const char *SYSTEM_RUN_FOLDER = "/run/tarnix";

static bool is_set(const char *value) {
    return value != nullptr && *value != '\0';
}

// A place whose name is too long is none.
__attribute__((format(printf, 2, 3))) static void print_place(char out[PLACE_SIZE], const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(out, PLACE_SIZE, format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= PLACE_SIZE) out[0] = '\0';
}

// The first folder of a list.
static void in_first_folder(const char *folders, const char *file, char out[PLACE_SIZE]) {
    print_place(out, "%.*s%s", static_cast<int>(strcspn(folders, ":")), folders, file);
}

// The file in the product's folder below `folder`, or below `fallback` of the home where the folder is not
// set; empty where there is no home either.
static void in_home(const char *folder, const char *home, const char *fallback, const char *file,
                    char out[PLACE_SIZE]) {
    out[0] = '\0';
    if (is_set(folder))
        print_place(out, "%s/tarnix%s", folder, file);
    else if (is_set(home))
        print_place(out, "%s%s/tarnix%s", home, fallback, file);
}

static void find_settings(const unix_user *user, places *out) {
    in_home(user->config_home, user->home, "/.config", "/tnagent.conf", out->user_settings);
    out->machine_settings[0] = '\0';
    if (is_set(user->configuration_directory))
        in_first_folder(user->configuration_directory, "/tnagent.conf", out->machine_settings);
    else if (user->is_root)
        print_place(out->machine_settings, "/etc/tarnix/tnagent.conf");
}

static void find_variables(const unix_user *user, places *out) {
    in_home(user->state_home, user->home, "/.local/state", "/variables", out->user_variables);
    if (user->is_root)
        print_place(out->variables, "/var/lib/tarnix/variables");
    else
        memcpy(out->variables, out->user_variables, PLACE_SIZE);
    if (!is_set(user->state_directory)) return;
    in_first_folder(user->state_directory, "/variables", out->variables);
    memcpy(out->user_variables, out->variables, PLACE_SIZE);
}

static void find_logfile(const unix_user *user, places *out) {
    if (is_set(user->logs_directory))
        in_first_folder(user->logs_directory, "/agent.log", out->logfile);
    else if (user->is_root)
        print_place(out->logfile, "/var/log/tarnix/agent.log");
    else
        in_home(user->state_home, user->home, "/.local/state", "/agent.log", out->logfile);
}

static void find_run_folder(const unix_user *user, places *out) {
    if (is_set(user->runtime_directory))
        in_first_folder(user->runtime_directory, "", out->run_folder);
    else if (user->is_root)
        print_place(out->run_folder, "%s", SYSTEM_RUN_FOLDER);
    else if (is_set(user->runtime_home))
        print_place(out->run_folder, "%s/tarnix", user->runtime_home);
    else
        print_place(out->run_folder, "/tmp/tarnix-%u", user->user_id);
    if (!is_set(user->runtime_directory) && !user->is_root)
        print_place(out->system_run_folder, "%s", SYSTEM_RUN_FOLDER);
}

void unix_places(const unix_user *user, places *out) {
    *out = {};
    find_settings(user, out);
    find_variables(user, out);
    find_logfile(user, out);
    find_run_folder(user, out);
}

const places *find_places() {
    static places found;
    places_host->find(&found);
    return &found;
}

const char *default_logfile() {
    return find_places()->logfile;
}

const char *default_variable_file(bool user_hive) {
    const places *found = find_places();
    return user_hive ? found->user_variables : found->variables;
}
