#include "probes/os/process_list.h"

#include "platform/text.h"

#include <cstring>

namespace {

constexpr size_t CUT_LENGTH = 15; // of the names that the kernel keeps
constexpr size_t STAT_SIZE = 1024;
constexpr size_t PATH_SIZE = 4096;
constexpr int FIELDS_TO_THREADS = 17; // from the state to the number of threads

} // namespace

// A process whose first thread alone has ended runs on; the number of its threads tells.
static bool has_ended(const char *state) {
    if (*state != 'Z' && *state != 'X') return false;
    for (int i = 0; i < FIELDS_TO_THREADS && state != nullptr; i++) {
        state = strchr(state, ' ');
        if (state != nullptr) state++;
    }
    return state == nullptr || parse_atoi(state) <= 1;
}

bool parse_process_stat(const char *text, process_stat *out) {
    const char *start = strchr(text, '(');
    const char *end = strrchr(text, ')');
    if (start == nullptr || end == nullptr || end < start) return false;
    auto size = static_cast<size_t>(end - start); // of the name with a terminator
    copy_bounded(out->name, start + 1, size < sizeof out->name ? size : sizeof out->name);
    out->ended = end[1] == ' ' && has_ended(end + 2);
    return true;
}

static bool take_whole_name(const char *path, char name[IMAGE_NAME_SIZE]) {
    const char *slash = strrchr(path, '/');
    const char *whole = slash != nullptr ? slash + 1 : path;
    if (*whole == '\0' || !text_starts_with(whole, name)) return false;
    copy_bounded(name, whole, IMAGE_NAME_SIZE);
    return true;
}

bool complete_from_program(const char *program, char name[IMAGE_NAME_SIZE]) {
    // Behind the path of a program that was replaced or removed while it runs.
    static constexpr char MARK[] = " (deleted)";
    constexpr size_t MARK_LENGTH = sizeof MARK - 1;
    char path[PATH_SIZE];
    copy_bounded(path, program, sizeof path);
    size_t length = strlen(path);
    if (length > MARK_LENGTH && text_equal(path + length - MARK_LENGTH, MARK))
        path[length - MARK_LENGTH] = '\0';
    return take_whole_name(path, name);
}

bool complete_from_arguments(const char *arguments, size_t size, char name[IMAGE_NAME_SIZE]) {
    for (size_t at = 0; at < size; at += strlen(arguments + at) + 1)
        if (take_whole_name(arguments + at, name)) return true;
    return false;
}

// Kernel threads have neither source and keep their names.
static void complete_name(const process_files &files, uint32_t id, char name[IMAGE_NAME_SIZE]) {
    char text[PATH_SIZE];
    if (files.read_link(id, "exe", text, sizeof text) > 0 && complete_from_program(text, name)) return;
    int64_t length = files.read(id, "cmdline", text, sizeof text);
    if (length > 0) complete_from_arguments(text, static_cast<size_t>(length), name);
}

bool read_process_name(const process_files &files, uint32_t id, char *name, uint32_t size) {
    char text[STAT_SIZE];
    process_stat found;
    if (files.read(id, "stat", text, sizeof text) <= 0) return false;
    if (!parse_process_stat(text, &found) || found.ended) return false;
    size_t length = strlen(found.name);
    if (length == CUT_LENGTH || length == 0) complete_name(files, id, found.name);
    copy_bounded(name, found.name, size);
    return true;
}

bool next_listed_process(const process_files &files, process_walk *walk, char *name, uint32_t size) {
    while (walk->size - walk->position >= sizeof(uint32_t)) {
        uint32_t id = 0;
        memcpy(&id, walk->snapshot + walk->position, sizeof id);
        if (id == 0) return false;
        walk->position += static_cast<uint32_t>(sizeof id);
        if (read_process_name(files, id, name, size)) return true;
    }
    return false;
}
