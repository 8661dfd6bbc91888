#include "launcher/options.h"

#include "launcher/launcher_ops.h"
#include "platform/errors.h"
#include "platform/text.h"

const char *const USAGE =
    "usage: tnlauncher [--folder FOLDER] [--program FILE] [-- AGENT'S ARGUMENTS...]\n"
    "\n"
    "Starts the agent, starts it again when it ends, and puts upgrades in its place.\n"
    "  --folder FOLDER  where the program is kept and run; the agent's relative paths begin there\n"
    "  --program FILE   what is copied there while it holds no program yet, the tnagent beside this program "
    "by default\n";

const char *const SERVICE_USAGE =
    "  --install        registers a service that is started with the other arguments\n"
    "  --uninstall      stops that service and takes it out of the register\n";

static const char **value_of(launcher_options *options, const char *name) {
    if (text_equal(name, "--folder")) return &options->folder;
    if (text_equal(name, "--program")) return &options->program;
    return nullptr;
}

static bool *flag_of(launcher_options *options, const char *name) {
    if (launcher_host->install == nullptr) return nullptr;
    if (text_equal(name, "--install")) return &options->install;
    if (text_equal(name, "--uninstall")) return &options->uninstall;
    return nullptr;
}

const char *parse_options(int argc, char **argv, launcher_options *out) {
    *out = {.agent_words = argv + argc};
    for (int at = 1; at < argc; at++) {
        if (text_equal(argv[at], "--")) {
            out->agent_words = argv + at + 1;
            break;
        }
        if (text_equal(argv[at], "--help") || text_equal(argv[at], "-h")) {
            out->help = true;
            return nullptr;
        }
        if (bool *flag = flag_of(out, argv[at])) {
            *flag = true;
            continue;
        }
        const char **value = value_of(out, argv[at]);
        if (value == nullptr)
            return format_error("unknown argument %s (the agent's stand behind --)", argv[at]);
        if (at + 1 == argc || *argv[at + 1] == '\0') return format_error("%s needs a value", argv[at]);
        *value = argv[++at];
    }
    return out->install && out->uninstall ? "--install and --uninstall exclude each other" : nullptr;
}
