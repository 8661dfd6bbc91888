#include "core/startup.h"

#include "core/families.h"
#include "core/local_down.h"
#include "core/options.h"
#include "core/os_arch.h"
#include "platform/agent_log.h"
#include "platform/crash.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/sockets.h"
#include "platform/text.h"
#include "settings/settings.h"
#include "state/variables.h"

// Out of memory in start-up ends in the same words everywhere.
template <class T>
static T *required(T *made) {
    if (made == nullptr) fatal("Out of memory when allocating configuration space");
    return made;
}

// The settings of a command line that names everything that is needed.
static agent_config *config_from_options(const command_line &options) {
    if (options.name == nullptr || options.servers == nullptr || options.domain == nullptr ||
        options.variable_file == nullptr || options.logfile == nullptr)
        fatal("Unable to read agent configuration.");
    config_guard config(required(heap_new<agent_config>()));
    config->name = required(text_copy(options.name));
    config->server_list = required(text_copy(options.servers));
    config->domain = required(text_copy(options.domain));
    config->variable_file = required(text_copy(options.variable_file));
    config->logfile = required(text_copy(options.logfile));
    if (options.port != nullptr) config->server_port = static_cast<uint16_t>(parse_atoi(options.port));
    if (config->server_port == 0) config->server_port = DEFAULT_SERVER_PORT;
    if (options.loglevel != nullptr) config->loglevel = parse_atoi(options.loglevel);
    if (config->loglevel == 0) config->loglevel = LOG_NORMAL;
    return config.release();
}

static void merge_port(const char *text, uint16_t *port) {
    *port = static_cast<uint16_t>(parse_atoi(text)); // cut to 16 bits, not refused
    if (*port == 0) {
        agent_log(LOG_WARNING, "Config: Couldn't parse server-port. Using default");
        *port = DEFAULT_SERVER_PORT;
        return;
    }
    agent_log(LOG_DETAIL, "Config: Using specified server-port %i", *port);
}

// A log file is not merged: it counts with the log on stderr alone.
static void merge_options(const command_line &options, agent_config *config) {
    if (options.name != nullptr) {
        agent_log(LOG_DETAIL, "Config: Using specified name \"%s\"", options.name);
        text_replace(&config->name, required(text_copy(options.name)));
    }
    if (options.servers != nullptr) {
        agent_log(LOG_DETAIL, "Config: Using specified server-names \"%s\"", options.servers);
        text_replace(&config->server_list, required(text_copy(options.servers)));
    }
    if (options.domain != nullptr) {
        agent_log(LOG_DETAIL, "Config: Using specified domain \"%s\"", options.domain);
        text_replace(&config->domain, required(text_copy(options.domain)));
    }
    if (options.variable_file != nullptr) {
        agent_log(LOG_DETAIL, "Config: Using specified variables file \"%s\"", options.variable_file);
        text_replace(&config->variable_file, required(text_copy(options.variable_file)));
    }
    if (options.port != nullptr) merge_port(options.port, &config->server_port);
    if (options.loglevel != nullptr) {
        config->loglevel = parse_atoi(options.loglevel);
        agent_log(LOG_DETAIL, "Config: Using specified loglevel: %i", config->loglevel);
    }
}

static void read_settings(const command_line &options) {
    if (options.settings_file != nullptr) config_in_force = read_config(options.settings_file);
    if (config_in_force == nullptr) config_in_force = read_config("");
    if (config_in_force == nullptr)
        config_in_force = config_from_options(options);
    else
        merge_options(options, config_in_force);
}

static void open_log(const command_line &options) {
    if (file_log_flag != 0)
        log_open(config_in_force->logfile);
    else if (options.logfile != nullptr)
        log_open(options.logfile);
    log_set_level(config_in_force->loglevel);
}

static void read_variables() {
    const char *path = config_in_force->variable_file;
    if (var_set_file(path) != nullptr) agent_log(LOG_WARNING, "Unable to set variables file name");
    if (auto *failure = var_read_all()) {
        agent_log(LOG_WARNING, "Unable to read variables: %s", failure);
        agent_log(LOG_WARNING, "Variables file (%s) will be created.", path);
    }
}

static void set_variable(const char *key, const char *value) {
    static_cast<void>(var_set(required(var_make(key, value))));
}

static bool variable_equals(const char *key, const char *value) {
    const variable *entry = var_get(key);
    return entry != nullptr && text_equal(entry->value, value);
}

// A list that the server has sent outlives a restart, until the setting changes by a single character.
static void reconcile_servers(agent_config *config) {
    const variable *cluster = var_get("server_list_cluster");
    if (cluster != nullptr && variable_equals("server_list_conf", config->server_list))
        text_replace(&config->server_list, required(text_copy(cluster->value)));
    else
        set_variable("server_list_conf", config->server_list);
    config->servers = parse_server_list(config->server_list);
    config->server_count = 0;
    while (config->servers[config->server_count].name != nullptr)
        config->server_count++;
}

// A renamed agent forgets the identity that the server gave it.
static void reconcile_identity(agent_config *config) {
    const char *name = config->name != nullptr ? config->name : "";
    text_replace(&config->host_id, nullptr);
    if (!variable_equals("name_conf", name)) {
        set_variable("name_conf", name);
        return;
    }
    if (const variable *host_id = var_get("host_id")) config->host_id = required(text_copy(host_id->value));
}

void start_up(int argc, char **argv) {
    command_line options;
    parse_options(argc, argv, &options);
    connect_rooms();
    if (down_flag != 0 && down_minutes != 0) try_local_down(down_minutes);
    read_settings(options);
    open_log(options);
    read_variables();
    reconcile_servers(config_in_force);
    reconcile_identity(config_in_force);
    config_in_force->checkin_freq = 30; // until the server says otherwise
    if (auto *failure = socket_init())
        fatal(format_error("Error initializing socket subsystem: %s", failure));
    install_crash_handler(crash_message);
    if (down_flag != 0) ask_server_for_downtime();
}
