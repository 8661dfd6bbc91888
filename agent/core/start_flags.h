// What the command line says: flags that other rooms read, and values that are merged into the settings.
#pragma once

#include <cstdint>

extern uint32_t file_log_flag; // the log goes to the file that the settings name
extern uint32_t quiet_flag; // a downtime result is printed on stderr instead of being shown in a message box
extern uint32_t down_flag;  // this process only asks for downtime
extern int32_t down_minutes;

// Texts of the options, borrowed from the command line; absent for what was not given.
struct command_line {
    const char *name;
    const char *servers;
    const char *domain;
    const char *port;
    const char *loglevel;
    const char *variable_file;
    const char *settings_file;
    const char *logfile;
};
