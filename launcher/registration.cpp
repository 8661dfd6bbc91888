#include "launcher/registration.h"

#include "launcher/launcher_ops.h"
#include "launcher/options.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"

namespace {

constexpr size_t PATH_SIZE = 1024;

// A service is started in a folder of the host's, so what is relative is so to the present one.
struct full_paths {
    char launcher[PATH_SIZE];
    char folder[PATH_SIZE];
    char program[PATH_SIZE];
};

using words_guard = guard<const char *, heap_free>;
using paths_guard = guard<full_paths, heap_free>;

bool make_full(const char *path, char *out) {
    return path == nullptr || launcher_host->full_path(path, out, PATH_SIZE);
}

const char *find_paths(const launcher_options &options, full_paths *out) {
    if (!process_host->GetModuleFileNameA(out->launcher, PATH_SIZE))
        return "cannot tell where the launcher is";
    if (!make_full(options.folder, out->folder)) return format_error("cannot use %.200s", options.folder);
    if (!make_full(options.program, out->program)) return format_error("cannot use %.200s", options.program);
    return nullptr;
}

words_guard make_words(const launcher_options &options, const full_paths &paths) {
    size_t count = 0;
    while (options.agent_words[count] != nullptr)
        count++;
    words_guard words(static_cast<const char **>(heap_alloc((count + 7) * sizeof(char *))));
    if (words == nullptr) return words;
    const char **at = words.get();
    *at++ = paths.launcher;
    if (options.folder != nullptr) {
        *at++ = "--folder";
        *at++ = paths.folder;
    }
    if (options.program != nullptr) {
        *at++ = "--program";
        *at++ = paths.program;
    }
    if (count > 0) *at++ = "--";
    for (size_t i = 0; i < count; i++)
        *at++ = options.agent_words[i];
    return words;
}

} // namespace

const char *register_service(const launcher_options &options) {
    paths_guard paths(heap_new<full_paths>());
    if (paths == nullptr) return "out of memory";
    if (auto *failure = find_paths(options, paths.get())) return failure;
    words_guard words = make_words(options, *paths);
    if (words == nullptr) return "out of memory";
    return launcher_host->install(words.get());
}
