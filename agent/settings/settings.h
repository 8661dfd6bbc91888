// The agent's settings: one record, read once at start from the registry or the files that stand for it.
//
// Three fields change later by the server's word: checkin_freq, the server list and host_id.
#pragma once

#include "platform/heap.h"
#include "platform/registry.h"

#include <cstdint>

inline constexpr uint16_t DEFAULT_SERVER_PORT = 3241;
inline constexpr uint32_t MAX_SERVERS = 255;

struct server_entry {
    char *name;    // absent behind the last entry
    uint16_t port; // 0 for server_port
};

struct agent_config {
    char *name; // absent until the first connection, when its local address takes the place
    char *domain;
    char *host_id; // given by the server
    char *server_list;
    server_entry *servers;
    int32_t server_count;
    uint16_t server_port;
    char *logfile;
    char *variable_file;
    char *custom_chk_conf;
    char *actions_conf;
    char *log_chk_conf;
    int32_t loglevel;
    int32_t log_days;                // 0 turns rotation off
    int32_t max_log_files;           // 0 turns rotation off
    int32_t max_data_retention_days; // 0 or negative keeps results
    uint32_t use_psapi;
    uint32_t perf_cnt_level;
    char *skip_event_source;
    uint32_t allow_autoupgrade;
    uint32_t disable_smart;
    uint32_t safte_assume_active;
    uint32_t safte_assume_inactive;
    char *disable_checks;
    int32_t checkin_freq; // seconds; -1 stands for 60
};

// The settings in force, for the whole process; absent until start-up has them.
extern agent_config *config_in_force;

// A setting was found in the user's hive; the variables are then kept there too.
extern uint32_t user_hive_flag;

// The keys of the settings, in the order in which they are read; absent behind the last.
extern const char *const setting_keys[];

// A new record, or absent when `server_list` or `domain` is missing. `path` names the settings file where
// settings live in files, and is not looked at elsewhere.
agent_config *read_config(const char *path);

// A new text, or absent: the user's hive is asked first, silently, then the machine's.
char *read_setting(const char *path, const char *key);
char *read_reg_value(registry_hive hive, const char *path, const char *key, bool quiet);

void free_config(agent_config *config); // takes absent

// A new array with an element of absent name behind the last; absent for an absent text. A bad port and a
// 256th server are fatal.
server_entry *parse_server_list(const char *text);
void free_server_list(server_entry *servers); // takes absent

// Entry `index` of the list, and the port to use for it.
const server_entry *config_server(const agent_config *config, int32_t index, uint16_t *out_port);

using config_guard = guard<agent_config, free_config>;
