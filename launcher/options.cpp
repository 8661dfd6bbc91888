#include "launcher/options.h"

#include "platform/errors.h"
#include "platform/text.h"

const char *const USAGE =
    "usage: tnlauncher [--folder FOLDER] [--program FILE] [-- AGENT'S ARGUMENTS...]\n"
    "\n"
    "Starts the agent, starts it again when it ends, and puts upgrades in its place.\n"
    "  --folder FOLDER  where the program is kept and run; the agent's relative paths begin there\n"
    "  --program FILE   what is copied there while it holds no program yet, the tnagent beside this program "
    "by default\n";

static const char **value_of(launcher_options *options, const char *name) {
    if (text_equal(name, "--folder")) return &options->folder;
    if (text_equal(name, "--program")) return &options->program;
    return nullptr;
}

const char *parse_options(int argc, char **argv, launcher_options *out) {
    *out = {.agent_words = argv + argc};
    for (int at = 1; at < argc; at++) {
        if (text_equal(argv[at], "--")) {
            out->agent_words = argv + at + 1;
            return nullptr;
        }
        if (text_equal(argv[at], "--help") || text_equal(argv[at], "-h")) {
            out->help = true;
            return nullptr;
        }
        const char **value = value_of(out, argv[at]);
        if (value == nullptr)
            return format_error("unknown argument %s (the agent's stand behind --)", argv[at]);
        if (at + 1 == argc || *argv[at + 1] == '\0') return format_error("%s needs a value", argv[at]);
        *value = argv[++at];
    }
    return nullptr;
}
