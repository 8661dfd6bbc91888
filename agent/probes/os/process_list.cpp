#include "probes/os/process_list.h"

#include "platform/text.h"

#include <cstring>

namespace {

constexpr size_t CUT_LENGTH = 15; // of the names that the kernel keeps
constexpr size_t STAT_SIZE = 1024;
constexpr size_t PATH_SIZE = 4096;
// Fields behind the state.
constexpr int FIELDS_TO_THREADS = 17;
constexpr int FIELDS_TO_START = 19;
constexpr int FIELDS_TO_STACK = 25;

} // namespace

// Absent behind the last field.
static const char *skip_fields(const char *at, int count) {
    for (; count > 0 && at != nullptr; count--) {
        at = strchr(at, ' ');
        if (at != nullptr) at++;
    }
    return at;
}

// A process whose first thread alone has ended runs on; the number of its threads tells.
static bool has_ended(const char *state) {
    if (*state != 'Z' && *state != 'X') return false;
    const char *threads = skip_fields(state, FIELDS_TO_THREADS);
    return threads == nullptr || parse_atoi(threads) <= 1;
}

static uint64_t parse_field(const char *state, int fields) {
    const char *at = skip_fields(state, fields);
    const char *end = nullptr;
    return at != nullptr ? parse_decimal(at, &end) : 0;
}

bool parse_process_stat(const char *text, process_stat *out) {
    const char *start = strchr(text, '(');
    const char *end = strrchr(text, ')');
    if (start == nullptr || end == nullptr || end < start) return false;
    auto size = static_cast<size_t>(end - start); // of the name with a terminator
    copy_bounded(out->name, start + 1, size < sizeof out->name ? size : sizeof out->name);
    out->state = end[1] == ' ' ? end + 2 : end + 1;
    out->ended = has_ended(out->state);
    return true;
}

process_run parse_process_run(uint32_t id, const char *state) {
    return {.id = id,
            .started = parse_field(state, FIELDS_TO_START),
            .stack = parse_field(state, FIELDS_TO_STACK)};
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

// Kernel threads have neither source and keep their names. False where a source could not be read.
static bool complete_name(const process_files &files, uint32_t id, char name[IMAGE_NAME_SIZE]) {
    char text[PATH_SIZE];
    if (files.read_link(id, "exe", text, sizeof text) > 0 && complete_from_program(text, name)) return true;
    int64_t length = files.read(id, "cmdline", text, sizeof text);
    if (length > 0) complete_from_arguments(text, static_cast<size_t>(length), name);
    return length >= 0;
}

// Either source may take the lock of the process's memory. In an uninterruptible sleep the process may hold
// it, perhaps for ever; nothing that can be read without the lock tells whether it does.
static bool may_hang(const process_stat &stat) {
    return *stat.state == 'D';
}

// False where the name stays a beginning.
static bool make_whole(const process_files &files, uint32_t id, process_stat *stat) {
    bool unnamed = stat->name[0] == '\0';
    if (!unnamed && strlen(stat->name) != CUT_LENGTH) {
        forget_name();
        return true;
    }
    process_run run = parse_process_run(id, stat->state);
    const char *known = remembered_name(run, stat->name);
    // A run that does not differ from the next one of its process is asked again whenever it may be.
    if (known != nullptr && (run.stack != 0 || may_hang(*stat)))
        copy_bounded(stat->name, known, sizeof stat->name);
    else if (may_hang(*stat))
        return unnamed; // what goes on like nothing would be everything
    else if (complete_name(files, id, stat->name))
        remember_name(run, stat->name);
    return true;
}

bool read_process_name(const process_files &files, uint32_t id, char *name, uint32_t size, bool *out_cut) {
    char text[STAT_SIZE];
    process_stat found;
    if (files.read(id, "stat", text, sizeof text) <= 0) return false;
    if (!parse_process_stat(text, &found) || found.ended) return false;
    process_names_turn_to(id);
    *out_cut = !make_whole(files, id, &found);
    copy_bounded(name, found.name, size);
    return true;
}

bool next_listed_process(const process_files &files, process_walk *walk, char *name, uint32_t size) {
    while (walk->size - walk->position >= sizeof(uint32_t)) {
        uint32_t id = 0;
        memcpy(&id, walk->snapshot + walk->position, sizeof id);
        if (id == 0) break;
        walk->position += static_cast<uint32_t>(sizeof id);
        if (read_process_name(files, id, name, size, &walk->cut)) return true;
    }
    process_names_end();
    return false;
}
