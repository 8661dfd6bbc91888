// The command line of tnserver.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class command { serve, summary, action, rekey, print_policy, help };

struct server_options {
    command what = command::serve;
    std::string listen = "127.0.0.1:3241";
    std::string store; // "" for the usual place
    std::string policy;
    std::string upgrade;
    int32_t upgrade_build = 0; // 0 for what the file names
    bool watch = false;
    std::vector<std::string> require; // families, for the summary
    std::string agent;                // for rekey and action
    std::string domain;               // for rekey
    std::string action;
};

extern const char *const USAGE;

// Absent, or what is wrong with the arguments (without the program's name).
[[nodiscard]] const char *parse_options(const std::vector<std::string> &arguments, server_options *out);

// Splits "127.0.0.1:3241", "[::1]:3241" or ":3241". False when it is none of them.
bool split_address(const std::string &text, std::string *out_host, std::string *out_port);
