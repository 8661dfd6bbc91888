#include "probes/os/counter_sources.h"

#include "platform/text.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_text.h"
#include "probes/os/name_index.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

const counter_sources_ops *counter_sources_host;

namespace {

constexpr size_t TEXT_LIMIT = size_t{16} << 20;
constexpr size_t FIRST_SIZE = 4096;
constexpr uint64_t KEPT_FOR = 1'000'000'000; // nanoseconds
constexpr size_t KEPT_TEXTS = 4;             // as many as any object has
constexpr const char *SPACE = "space:";
constexpr const char *OPEN_FILES = "open:";

struct kept_text {
    char *path;
    char *text;
};

// The last thing that was found out about one instance. A browser asks for the same with each of its
// counters.
struct kept_answer {
    bool (*question)(const char *text, const char *instance); // absent until there is one
    char *path;
    char *instance;
    bool yes;
};

// What is known of the object at hand.
struct kept_sources {
    const counter_object *object;
    uint64_t since;
    kept_text texts[KEPT_TEXTS];
    char *names; // absent until they are listed
    name_index index;
    kept_answer answer;
};

// A text that grows at its end.
struct growing_text {
    char *text;
    size_t length;
    size_t size;
    bool failed;
};

kept_sources kept;

// What the largest source so far needed: a buffer that was too small once would be so again.
size_t expected_size = FIRST_SIZE;

} // namespace

static bool make_room(growing_text *text, size_t more) {
    if (text->failed) return false;
    if (text->size - text->length > more) return true;
    size_t size = std::max(text->size * 2, text->length + more + FIRST_SIZE);
    char *larger = size <= TEXT_LIMIT ? static_cast<char *>(heap_alloc(size)) : nullptr;
    if (larger != nullptr && text->length > 0) memcpy(larger, text->text, text->length);
    text->failed = larger == nullptr;
    if (text->failed) return false;
    heap_free(text->text);
    text->text = larger;
    text->size = size;
    return true;
}

static void append(growing_text *text, const char *bytes, size_t length) {
    if (!make_room(text, length)) return;
    memcpy(text->text + text->length, bytes, length);
    text->length += length;
}

// The whole text with its end, absent where memory was out. The block then has no other owner.
static text_guard finish(growing_text *text) {
    append(text, "", 1);
    text_guard whole(text->text);
    *text = {.failed = text->failed};
    return text->failed ? text_guard() : std::move(whole);
}

static text_guard read_whole(const char *path) {
    for (size_t size = expected_size; size <= TEXT_LIMIT; size *= 4) {
        text_guard text(static_cast<char *>(heap_alloc(size + 1)));
        if (text == nullptr) return text;
        int64_t length = counter_sources_host->read_source(path, text.get(), size);
        if (length < 0) return {};
        if (static_cast<size_t>(length) == size) continue;
        expected_size = size;
        return text;
    }
    return {};
}

static text_guard read_open_files(const char *folder) {
    char text[32];
    int64_t count = counter_sources_host->count_open_files(folder);
    if (count < 0) return {};
    snprintf(text, sizeof text, "%lld\n", static_cast<long long>(count));
    return text_guard(text_copy(text));
}

static bool ends_with(const char *text, const char *end) {
    size_t length = strlen(text);
    size_t wanted = strlen(end);
    return length >= wanted && text_equal(text + length - wanted, end);
}

// One file of many. In /proc/PID/stat stands a name that may hold any byte, a line feed, too; that file
// becomes one line. In the others the kernel escapes it.
static void append_file(growing_text *all, const char *path) {
    char text[4096];
    int64_t length = counter_sources_host->read_source(path, text, sizeof text);
    if (length <= 0 || static_cast<size_t>(length) == sizeof text || text[length - 1] != '\n') return;
    bool one_line = ends_with(path, "/stat");
    for (int64_t i = 0; i + 1 < length; i++)
        if (text[i] == '\0' || (one_line && text[i] == '\n')) text[i] = '?';
    append(all, text, static_cast<size_t>(length));
}

static void append_open_files(growing_text *all, const char *folder) {
    text_guard count = read_open_files(folder);
    if (count != nullptr) append(all, count.get(), strlen(count.get()));
}

static text_guard read_files(const char *path, void (*append_one)(growing_text *all, const char *path)) {
    char folder[SOURCE_PATH_SIZE];
    copy_bounded(folder, path, static_cast<size_t>(strchr(path, '*') - path) + 1);
    text_guard names = read_whole(folder);
    if (names == nullptr) return {};
    growing_text all = {};
    const char *behind = nullptr;
    for (const char *name = names.get(); (behind = next_line(name)) != nullptr; name = behind) {
        char key[16];
        size_t digits = strspn(name, "0123456789");
        if (digits == 0 || digits >= sizeof key || name[digits] != '\n') continue;
        copy_bounded(key, name, digits + 1);
        char file[SOURCE_PATH_SIZE];
        if (make_source_path(path, key, file, sizeof file)) append_one(&all, file);
    }
    return finish(&all);
}

// The drives that the family of file systems offers, found in the same way.
static void append_drives(growing_text *paths, const char *path) {
    if (drives_host->GetDriveTypeA(path) != DRIVE_FIXED) return;
    append(paths, path, strlen(path));
    append(paths, "\n", 1);
    char below[128];
    copy_bounded(below, path, sizeof below);
    auto length = static_cast<uint32_t>(strlen(below));
    auto room = static_cast<uint32_t>(sizeof below) - length;
    mount_search *search = drives_host->FindFirstVolumeMountPointA(path, below + length, room);
    if (search == nullptr) return;
    do
        append_drives(paths, below);
    while (drives_host->FindNextVolumeMountPointA(search, below + length, room));
    drives_host->FindVolumeMountPointClose(search);
}

static text_guard read_drives() {
    growing_text paths = {};
    const char *root = nullptr;
    for (uint32_t index = 0; (root = drives_host->drive_root(index)) != nullptr; index++) {
        char path[128];
        copy_bounded(path, root, sizeof path);
        append_drives(&paths, path);
    }
    return finish(&paths);
}

static text_guard read_space(const char *path) {
    if (*path == '\0') return read_drives();
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t total_free = 0;
    if (!drives_host->GetDiskFreeSpaceExA(path, &available, &total, &total_free)) return {};
    char text[64];
    snprintf(text, sizeof text, "%llu %llu\n", static_cast<unsigned long long>(total_free),
             static_cast<unsigned long long>(total));
    return text_guard(text_copy(text));
}

text_guard read_counter_source(const char *path) {
    if (text_starts_with(path, SPACE)) return read_space(path + strlen(SPACE));
    bool many = strchr(path, '*') != nullptr;
    if (text_starts_with(path, OPEN_FILES)) {
        const char *folder = path + strlen(OPEN_FILES);
        return many ? read_files(folder, append_open_files) : read_open_files(folder);
    }
    return many ? read_files(path, append_file) : read_whole(path);
}

bool make_source_path(const char *source, const char *key, char *buffer, size_t size) {
    const char *star = strchr(source, '*');
    int length = star == nullptr ? snprintf(buffer, size, "%s", source)
                                 : snprintf(buffer, size, "%.*s%s%s", static_cast<int>(star - source), source,
                                            key, star + 1);
    return length >= 0 && static_cast<size_t>(length) < size;
}

static void forget() {
    for (kept_text &each : kept.texts) {
        heap_free(each.path);
        heap_free(each.text);
    }
    heap_free(kept.names);
    heap_free(kept.answer.path);
    heap_free(kept.answer.instance);
    free_name_index(&kept.index);
    kept = {};
}

static bool is_old() {
    return counter_sources_host->ticks() - kept.since >= KEPT_FOR;
}

static void turn_to(const counter_object *object, bool afresh) {
    if (kept.object == object && !afresh && !is_old()) return;
    forget();
    kept.object = object;
    kept.since = counter_sources_host->ticks();
}

void drop_old_sources() {
    if (kept.object != nullptr && is_old()) forget();
}

static const char *keep(const char *path) {
    kept_text *place = std::begin(kept.texts);
    for (; place->text != nullptr; place++) {
        if (text_equal(place->path, path)) return place->text;
        if (place + 1 == std::end(kept.texts)) return nullptr;
    }
    text_guard text = read_counter_source(path);
    text_guard name(text != nullptr ? text_copy(path) : nullptr);
    if (name == nullptr) return nullptr;
    *place = {.path = name.release(), .text = text.release()};
    return place->text;
}

const char *kept_source(const counter_object *object, const char *path) {
    turn_to(object, false);
    return keep(path);
}

// What an instance has for itself is small, whatever else was read before it.
static text_guard read_own_source(const char *path) {
    growing_text text = {};
    if (text_starts_with(path, OPEN_FILES))
        append_open_files(&text, path + strlen(OPEN_FILES));
    else
        append_file(&text, path);
    return finish(&text);
}

static bool is_answered(const counter_row *row, const char *path, const char *instance) {
    const kept_answer &answer = kept.answer;
    return answer.question == row->is_there && text_equal(answer.path, path) &&
           text_equal(answer.instance, instance);
}

static void keep_answer(const counter_row *row, const char *path, const char *instance, bool yes) {
    text_replace(&kept.answer.path, text_copy(path));
    text_replace(&kept.answer.instance, text_copy(instance));
    bool copied = kept.answer.path != nullptr && kept.answer.instance != nullptr;
    kept.answer.question = copied ? row->is_there : nullptr;
    kept.answer.yes = yes;
}

bool has_instance_source(const counter_object *object, const counter_row *row, const char *path,
                         const char *instance) {
    turn_to(object, false);
    if (is_answered(row, path, instance)) return kept.answer.yes;
    bool own = strchr(row->source, '*') != nullptr;
    text_guard read(own ? read_own_source(path) : text_guard());
    const char *text = own ? read.get() : keep(path);
    bool yes = text != nullptr && row->is_there(text, instance);
    keep_answer(row, path, instance, yes);
    return yes;
}

static bool append_instance(void *context, const char *instance, const char *key) {
    auto *names = static_cast<growing_text *>(context);
    if (*instance == '\0') return true; // it would look like the end
    if (key == nullptr) key = instance;
    append(names, instance, strlen(instance) + 1);
    append(names, key, strlen(key) + 1);
    return !names->failed;
}

static const char *behind_instance(const char *instance) {
    const char *key = instance + strlen(instance) + 1;
    return key + strlen(key) + 1;
}

static bool index_instances() {
    for (const char *name = kept.names; *name != '\0'; name = behind_instance(name)) {
        uint32_t number = 0;
        if (!index_name(&kept.index, name, &number)) return false;
    }
    return true;
}

const char *list_counter_instances(const counter_object *object, bool afresh) {
    turn_to(object, afresh);
    if (kept.names != nullptr) return kept.names;
    const char *text = keep(object->instance_source);
    if (text == nullptr) return nullptr;
    growing_text names = {};
    object->list_instances(text, append_instance, &names);
    kept.names = finish(&names).release();
    if (kept.names == nullptr || index_instances()) return kept.names;
    forget();
    return nullptr;
}

const char *find_counter_instance(const counter_object *object, const char *instance, bool afresh) {
    if (list_counter_instances(object, afresh) == nullptr) return nullptr;
    const char *mark = strrchr(instance, '#');
    uint64_t number = 0;
    const char *digits = mark != nullptr ? mark + 1 : "";
    if (*digits != '0' && read_number(&digits, &number) && *digits == '\0' && number <= UINT32_MAX) {
        const indexed_name *found = find_indexed_name(
            &kept.index, instance, static_cast<size_t>(mark - instance), static_cast<uint32_t>(number));
        if (found != nullptr) return found->name;
    }
    const indexed_name *found = find_indexed_name(&kept.index, instance, strlen(instance), 0);
    return found != nullptr ? found->name : nullptr;
}

void counter_sources_reset() {
    forget();
    expected_size = FIRST_SIZE;
}
