#include "core/options.h"

#include "core/parent_pipes.h"
#include "core/upgrade.h"
#include "devtree/fake_checks.h"
#include "platform/fatal.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/version.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

uint32_t file_log_flag = 1;
uint32_t quiet_flag;
uint32_t down_flag;
int32_t down_minutes;

namespace {

constexpr int32_t DEFAULT_DOWN_MINUTES = 30;
constexpr const char *DOWN_WITH_MINUTES = "--down=";

// The words that are still to be read. A missing value is absent.
struct words {
    char **argv;
    int left;

    const char *next() {
        if (left == 0) return nullptr;
        left--;
        return *argv++;
    }
};

struct value_option {
    const char *name;
    const char *command_line::*value;
};

constexpr value_option value_options[] = {
    {"-c", &command_line::name},          {"-s", &command_line::servers},
    {"-d", &command_line::domain},        {"-p", &command_line::port},
    {"-l", &command_line::loglevel},      {"-t", &command_line::variable_file},
    {"-f", &command_line::settings_file}, {"-m", &command_line::logfile},
};

} // namespace

void print_on_stderr(const char *format, ...) {
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    file_write_all(files_host->stderr_handle, text, strlen(text));
}

[[noreturn]] static void print_version() {
    print_on_stderr("\n Tarnix Agent : ");
    print_on_stderr("%s", version_text);
    print_on_stderr("\n\n");
    process_exit(0);
}

// The options that only the launcher and tests use are left out on purpose.
[[noreturn]] static void print_usage(const char *program) {
    print_on_stderr("Usage:  %s  [-v][-V] [-f <config file>]\n"
                    "                 [-c <name>] [-d <domain>]\n"
                    "                 [-s <server name>] [-p <server port>]\n"
                    "                 [-t <variables file>]\n"
                    "                 [-l <log level>]\n"
                    "                 [-m <log file>]\n"
                    "                 [--down[=<minutes>]] --quiet\n",
                    program);
    process_exit(0);
}

static void ask_for_downtime(int32_t minutes) {
    down_flag = 1;
    down_minutes = minutes;
    file_log_flag = 0;
}

// Whatever follows, up to four words, is taken as numbers.
static void read_regression_options(words *rest) {
    regression_flag = 1;
    if (const char *word = rest->next()) fake_device_count = static_cast<uint32_t>(parse_number(word));
    if (const char *word = rest->next()) fake_start_time = parse_number(word);
    if (const char *word = rest->next()) fake_end_time = parse_number(word);
    if (const char *word = rest->next()) fake_repeat_count = static_cast<uint32_t>(parse_number(word));
}

static bool take_value_option(const char *word, words *rest, command_line *out) {
    for (const value_option &option : value_options) {
        if (!text_equal(word, option.name)) continue;
        out->*option.value = rest->next();
        return out->*option.value != nullptr;
    }
    return false;
}

static bool take_parent_option(const char *word, words *rest) {
    if (text_equal(word, "--upgrade-failed")) {
        upgrade_failed = 1;
        return true;
    }
    if (!text_equal(word, "--parent-pipes")) return false;
    const char *read_end = rest->next();
    const char *write_end = rest->next();
    if (write_end == nullptr) return false;
    set_parent_pipes(parse_atoi(read_end), parse_atoi(write_end));
    return true;
}

static bool take_flag(const char *word, words *rest) {
    if (text_equal(word, "-v"))
        file_log_flag = 0;
    else if (text_equal(word, "-V"))
        print_version();
    else if (text_equal(word, "--regression-test"))
        read_regression_options(rest);
    else if (text_equal(word, "--fake-results"))
        fake_results_flag = 1;
    else if (text_equal(word, "--down"))
        ask_for_downtime(DEFAULT_DOWN_MINUTES);
    else if (text_equal(word, "--quiet"))
        quiet_flag = 1;
    else if (text_starts_with(word, DOWN_WITH_MINUTES))
        ask_for_downtime(parse_number(word + strlen(DOWN_WITH_MINUTES)));
    else
        return false;
    if (down_flag != 0 && down_minutes == 0) down_minutes = 1;
    return true;
}

void parse_options(int argc, char **argv, command_line *out) {
    *out = {};
    words rest = {.argv = argv + 1, .left = argc > 1 ? argc - 1 : 0};
    while (const char *word = rest.next())
        if (!take_parent_option(word, &rest) && !take_flag(word, &rest) &&
            !take_value_option(word, &rest, out))
            print_usage(argc > 0 ? argv[0] : "tnagent");
}

void options_reset() {
    file_log_flag = 1;
    quiet_flag = down_flag = 0;
    down_minutes = 0;
    upgrade_reset();
    parent_pipes_reset();
}
