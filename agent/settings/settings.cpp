#include "settings/settings.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "settings/places.h"

#include <cstring>

agent_config *config_in_force;
uint32_t user_hive_flag;

static constexpr const char *SETTINGS_PATH = "SOFTWARE\\Tarnix\\TNAgent";

const char *const setting_keys[] = {"max_data_retention_days",
                                    "name",
                                    "server_list",
                                    "server_port",
                                    "domain",
                                    "logfile",
                                    "variable_file",
                                    "custom_chk_conf",
                                    "actions_conf",
                                    "log_chk_conf",
                                    "log_days",
                                    "max_log_files",
                                    "loglevel",
                                    "allow_autoupgrade",
                                    "use_psapi",
                                    "disable_smart",
                                    "safte_assume_active",
                                    "perf_cnt_level",
                                    "skip_event_source",
                                    "disable_checks",
                                    nullptr};

// The terminator that a stored text may end in does not stop the cut.
static void cut_blanks_at_end(char *text, uint32_t length) {
    while (length > 0 && (is_blank(text[length - 1]) || text[length - 1] == '\0'))
        text[--length] = '\0';
}

char *read_reg_value(registry_hive hive, const char *path, const char *key, bool quiet) {
    int32_t level = quiet ? LOG_TRACE : LOG_NORMAL;
    registry_key *opened = nullptr;
    if (uint32_t status = registry_host->RegOpenKeyExA(hive, path, REGISTRY_QUERY, &opened); status != 0) {
        agent_log(level, "Cannot open path \"%s\": %s", path, error_text(status));
        return nullptr;
    }
    char buffer[REGISTRY_VALUE_LIMIT + 1] = {};
    uint32_t size = REGISTRY_VALUE_LIMIT;
    uint32_t status = registry_host->RegQueryValueExA(opened, key, buffer, &size);
    registry_host->RegCloseKey(opened);
    if (status != 0) {
        agent_log(level, "Cannot read key \"%s\": %s", key, error_text(status));
        return nullptr;
    }
    if (size == 0) return text_copy("");
    buffer[size] = '\0';
    const char *start = buffer;
    while (is_blank(*start))
        start++;
    cut_blanks_at_end(buffer, size);
    return text_copy(start);
}

char *read_setting(const char *path, const char *key) {
    if (char *value = read_reg_value(USER_HIVE, path, key, true)) {
        if (user_hive_flag == 0)
            agent_log(LOG_NORMAL, "Found key in current user's registry - will store variables there too");
        user_hive_flag = 1;
        return value;
    }
    return read_reg_value(MACHINE_HIVE, path, key, false);
}

// Readers of one setting each; an absent setting leaves the default.

static void read_text(const char *key, char **out) {
    if (char *value = read_setting(SETTINGS_PATH, key)) text_replace(out, value);
}

static void read_text_unless_empty(const char *key, char **out) {
    read_text(key, out);
    if (*out != nullptr && **out == '\0') text_replace(out, nullptr);
}

static void read_int(const char *key, int32_t *out) {
    text_guard value(read_setting(SETTINGS_PATH, key));
    if (value != nullptr) *out = parse_atoi(value.get());
}

static bool is_word(char *text, const char *word) {
    return text_equal(text_to_lower(text), word);
}

static void read_boolean(const char *key, uint32_t *out) {
    text_guard value(read_setting(SETTINGS_PATH, key));
    if (value != nullptr) *out = is_word(value.get(), "true");
}

static void read_port(uint16_t *out) {
    int32_t port = *out;
    read_int("server_port", &port);
    *out = static_cast<uint16_t>(port);
    if (*out == 0) *out = DEFAULT_SERVER_PORT;
}

static void read_assumption(agent_config *config) {
    text_guard value(read_setting(SETTINGS_PATH, "safte_assume_active"));
    if (value == nullptr) return;
    config->safte_assume_active = is_word(value.get(), "true");
    config->safte_assume_inactive = is_word(value.get(), "false");
}

static void read_detail_level(uint32_t *out) {
    static constexpr struct {
        const char *word;
        uint32_t level;
    } words[] = {{"novice", 100}, {"advanced", 200}, {"expert", 300}, {"wizard", 400}};
    text_guard value(read_setting(SETTINGS_PATH, "perf_cnt_level"));
    if (value == nullptr) return;
    for (const auto &row : words) {
        if (is_word(value.get(), row.word)) {
            *out = row.level;
            return;
        }
    }
    const char *end;
    uint64_t number = parse_decimal(value.get(), &end);
    if (*end == '\0') *out = static_cast<uint32_t>(number);
}

static void set_defaults(agent_config *config) {
    config->server_port = DEFAULT_SERVER_PORT;
    config->loglevel = 1;
    config->log_days = 7;
    config->max_log_files = 5;
    config->max_data_retention_days = 7;
    config->perf_cnt_level = 200;
    config->checkin_freq = 30;
}

static void read_all(agent_config *config) {
    read_int("max_data_retention_days", &config->max_data_retention_days);
    read_text_unless_empty("name", &config->name);
    read_text("server_list", &config->server_list);
    read_port(&config->server_port);
    read_text("domain", &config->domain);
    read_text("logfile", &config->logfile);
    read_text("variable_file", &config->variable_file);
    read_text("custom_chk_conf", &config->custom_chk_conf);
    read_text("actions_conf", &config->actions_conf);
    read_text("log_chk_conf", &config->log_chk_conf);
    read_int("log_days", &config->log_days);
    read_int("max_log_files", &config->max_log_files);
    read_int("loglevel", &config->loglevel);
    read_boolean("allow_autoupgrade", &config->allow_autoupgrade);
    read_boolean("use_psapi", &config->use_psapi);
    read_boolean("disable_smart", &config->disable_smart);
    read_assumption(config);
    read_detail_level(&config->perf_cnt_level);
    read_text("skip_event_source", &config->skip_event_source);
    read_text_unless_empty("disable_checks", &config->disable_checks);
}

// The place of the variables depends on where the settings were found, so the defaults come last.
static void add_default_places(agent_config *config) {
    if (config->logfile == nullptr) config->logfile = text_copy(default_logfile());
    if (config->variable_file == nullptr)
        config->variable_file = text_copy(default_variable_file(user_hive_flag != 0));
}

agent_config *read_config(const char *path) {
    if (registry_host->use_settings_file != nullptr && *path != '\0') registry_host->use_settings_file(path);
    config_guard config(heap_new<agent_config>());
    if (config == nullptr) return nullptr;
    set_defaults(config.get());
    read_all(config.get());
    if (config->server_list == nullptr || config->domain == nullptr) return nullptr;
    add_default_places(config.get());
    return config->logfile != nullptr && config->variable_file != nullptr ? config.release() : nullptr;
}

void free_config(agent_config *config) {
    if (config == nullptr) return;
    for (char *text : {config->name, config->domain, config->host_id, config->server_list, config->logfile,
                       config->variable_file, config->custom_chk_conf, config->actions_conf,
                       config->log_chk_conf, config->skip_event_source, config->disable_checks})
        heap_free(text);
    free_server_list(config->servers);
    heap_free(config);
}

const server_entry *config_server(const agent_config *config, int32_t index, uint16_t *out_port) {
    const server_entry *server = &config->servers[index];
    *out_port = server->port != 0 ? server->port : config->server_port;
    return server;
}
