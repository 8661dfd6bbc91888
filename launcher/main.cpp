// tnlauncher: the composition root. Reads the command line, enters the folder of the program, and serves.
#include "launcher/launcher_ops.h"
#include "launcher/options.h"
#include "launcher/registration.h"
#include "launcher/supervisor.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/files.h"

#include <cstdio>

namespace {

enum : int { EXIT_GOOD = 0, EXIT_TROUBLE = 1, EXIT_USAGE = 2 };
constexpr size_t PATH_SIZE = 1024;

launcher_options options;

// The program that an empty folder gets.
bool find_installed(char out[PATH_SIZE]) {
    if (options.program != nullptr) return launcher_host->full_path(options.program, out, PATH_SIZE);
    if (!process_host->GetModuleFileNameA(out, PATH_SIZE)) return false;
    size_t folder = static_cast<size_t>(file_name_of(out) - out);
    int length = snprintf(out + folder, PATH_SIZE - folder, "tnagent%s", process_host->program_suffix);
    return static_cast<size_t>(length) < PATH_SIZE - folder;
}

const char *enter_folder() {
    char folder[PATH_SIZE];
    bool found = options.folder != nullptr ? launcher_host->full_path(options.folder, folder, PATH_SIZE)
                                           : launcher_host->default_folder(folder, PATH_SIZE);
    if (!found) return "cannot tell which folder to use: --folder says it";
    char inside[PATH_SIZE + 2];
    snprintf(inside, sizeof inside, "%s/.", folder);
    file_make_folders(inside);
    if (!launcher_host->enter_folder(folder))
        return format_error("cannot enter %s: %s", folder, last_error_text());
    if (!launcher_host->lock_folder("lock"))
        return format_error("cannot lock %s, another launcher may use it: %s", folder, last_error_text());
    launcher_host->tell(false, format_error("keeps the program in %s", folder));
    return nullptr;
}

int serve() {
    char installed[PATH_SIZE];
    if (!find_installed(installed)) {
        launcher_host->tell(true, "cannot tell which program to start: --program says it");
        return EXIT_TROUBLE;
    }
    if (auto *failure = enter_folder()) {
        launcher_host->tell(true, failure);
        return EXIT_TROUBLE;
    }
    return supervise(installed, options.agent_words);
}

int change_register() {
    auto *failure = options.install ? register_service(options) : launcher_host->uninstall();
    if (failure == nullptr) return EXIT_GOOD;
    launcher_host->tell(false, failure); // to whoever has asked for it
    return EXIT_TROUBLE;
}

void print_usage(FILE *out) {
    fprintf(out, "%s%s", USAGE, launcher_host->install != nullptr ? SERVICE_USAGE : "");
}

void use_host() {
    error_host = &error_ops_host;
    event_host = &event_ops_host;
    files_host = &files_ops_host;
    process_host = &process_ops_host;
    launcher_host = &launcher_ops_host;
}

} // namespace

int main(int argc, char **argv) {
    use_host();
    if (auto *failure = parse_options(argc, argv, &options)) {
        fprintf(stderr, "tnlauncher: %s\n", failure);
        print_usage(stderr);
        return EXIT_USAGE;
    }
    if (options.help) {
        print_usage(stdout);
        return EXIT_GOOD;
    }
    if (options.install || options.uninstall) return change_register();
    return launcher_host->serve(serve);
}
