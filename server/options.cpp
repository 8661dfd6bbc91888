#include "server/options.h"

#include "platform/errors.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

const char *const USAGE = R"(usage: tnserver [--listen ADDRESS:PORT] [--store FILE] [--policy FILE] [--watch]
                [--upgrade FILE [--upgrade-build NUMBER]]
       tnserver summary [--store FILE] [--require FAMILY,FAMILY...]
       tnserver action [--store FILE] AGENT NAME
       tnserver rekey [--store FILE] AGENT DOMAIN
       tnserver policy

Without a command, serves agents until it is interrupted.
  --listen ADDRESS:PORT  where agents connect, 127.0.0.1:3241 by default; port 0 takes a free one
  --store FILE           what is known about agents, with their keys and results
  --policy FILE          who may register and what is checked, over the built-in policy
  --watch                prints each result as it comes
  --upgrade FILE         offers this agent program to agents of a lower build
  --upgrade-build NUMBER its build, where the file does not name it or is to pass for another

summary shows what a store holds, by family of checks. It ends with 1 when a family that is checked, or one that
is required, has no result that is not an error.
action orders an agent, NAME or NAME@DOMAIN, to start one of the actions that it offers.
rekey lets an agent that has lost its key make a new one, once.
policy prints the built-in policy, to start an own one from.
)";

namespace {

struct option_row {
    const char *name;
    std::string server_options::*value;
};

constexpr option_row WITH_VALUE[] = {
    {"--listen", &server_options::listen},
    {"--store", &server_options::store},
    {"--policy", &server_options::policy},
    {"--upgrade", &server_options::upgrade},
};

struct command_row {
    const char *name;
    command what;
    std::vector<std::string server_options::*> words; // arguments that are no options
    const char *missing;                              // said where there are too few
};

const command_row COMMANDS[] = {
    {"summary", command::summary, {}, ""},
    {"action",
     command::action,
     {&server_options::agent, &server_options::action},
     "action needs the names of the agent and of the action"},
    {"rekey",
     command::rekey,
     {&server_options::agent, &server_options::domain},
     "rekey needs the name of the agent and its domain"},
    {"policy", command::print_policy, {}, ""},
};

std::vector<std::string> split_list(const std::string &text) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');)
        if (!part.empty()) parts.push_back(part);
    return parts;
}

const char *take_build(const std::string &text, int32_t *out) {
    char *end = nullptr;
    errno = 0;
    long number = strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || number < 1 || number > INT32_MAX)
        return "--upgrade-build needs a number above 0";
    *out = static_cast<int32_t>(number);
    return nullptr;
}

// Takes the option at `*at` with its value, and moves there behind it.
const char *take_option(const std::vector<std::string> &arguments, size_t *at, server_options *out) {
    const std::string &name = arguments[*at];
    if (name == "--help" || name == "-h") {
        out->what = command::help;
        return nullptr;
    }
    if (name == "--watch") {
        out->watch = true;
        return nullptr;
    }
    std::string list;
    std::string build;
    std::string *value = name == "--require" ? &list : name == "--upgrade-build" ? &build : nullptr;
    for (const option_row &row : WITH_VALUE)
        if (name == row.name) value = &(out->*row.value);
    if (value == nullptr) return format_error("unknown option %s", name.c_str());
    if (*at + 1 == arguments.size() || arguments[*at + 1].empty())
        return format_error("%s needs a value", name.c_str());
    *value = arguments[++*at];
    if (!list.empty()) out->require = split_list(list);
    return build.empty() ? nullptr : take_build(build, &out->upgrade_build);
}

// Serving has no word of its own.
const command_row *find_command(const std::string &name) {
    for (const command_row &row : COMMANDS)
        if (name == row.name) return &row;
    return nullptr;
}

const char *take_words(const command_row *row, const std::vector<std::string> &words, server_options *out) {
    size_t wanted = row == nullptr ? 0 : row->words.size();
    if (words.size() > wanted) return format_error("\"%s\" is too much", words[wanted].c_str());
    if (words.size() < wanted) return row->missing;
    for (size_t i = 0; i < wanted; i++)
        out->*row->words[i] = words[i];
    return nullptr;
}

} // namespace

const char *parse_options(const std::vector<std::string> &arguments, server_options *out) {
    std::vector<std::string> words;
    const command_row *row = arguments.empty() ? nullptr : find_command(arguments[0]);
    if (row != nullptr) out->what = row->what;
    for (size_t at = row == nullptr ? 0 : 1; at < arguments.size(); at++) {
        if (arguments[at].empty() || arguments[at][0] != '-')
            words.push_back(arguments[at]);
        else if (auto *failure = take_option(arguments, &at, out))
            return failure;
    }
    if (out->what == command::help) return nullptr;
    if (out->upgrade_build != 0 && out->upgrade.empty()) return "--upgrade-build needs --upgrade";
    if (auto *failure = take_words(row, words, out)) return failure;
    std::string host;
    std::string port;
    return split_address(out->listen, &host, &port) ? nullptr : "--listen needs ADDRESS:PORT";
}

bool split_address(const std::string &text, std::string *out_host, std::string *out_port) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    *out_host = text.substr(0, colon);
    *out_port = text.substr(colon + 1);
    if (out_host->size() > 2 && out_host->front() == '[' && out_host->back() == ']')
        *out_host = out_host->substr(1, out_host->size() - 2);
    else if (out_host->find(':') != std::string::npos)
        return false;
    char *end = nullptr;
    long port = strtol(out_port->c_str(), &end, 10);
    return !out_port->empty() && (*out_port)[0] >= '0' && (*out_port)[0] <= '9' && *end == '\0' &&
           port <= 65535;
}
