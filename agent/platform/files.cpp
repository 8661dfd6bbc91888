#include "platform/files.h"

#include "platform/clock.h"
#include "platform/heap.h"
#include "platform/text.h"

#include <cstring>

const files_ops *files_host;

bool file_write_all(host_file file, const void *buffer, size_t size) {
    const auto *at = static_cast<const char *>(buffer);
    while (size > 0) {
        int64_t written = files_host->write(file, at, size);
        if (written <= 0) return false;
        at += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

static char *grown(char *text, size_t length, size_t capacity) {
    auto *larger = static_cast<char *>(heap_alloc(capacity + 1));
    if (larger != nullptr) memcpy(larger, text, length);
    heap_free(text);
    return larger;
}

static char *read_open_file(host_file file, size_t limit, size_t *out_length) {
    size_t capacity = 4096;
    size_t length = 0;
    auto *text = static_cast<char *>(heap_alloc(capacity + 1));
    while (text != nullptr) {
        int64_t got = files_host->read(file, text + length, capacity - length);
        if (got == 0) break;
        length += got > 0 ? static_cast<size_t>(got) : 0;
        if (got < 0 || length > limit) {
            heap_free(text);
            return nullptr;
        }
        if (length == capacity) {
            capacity *= 2;
            text = grown(text, length, capacity);
        }
    }
    if (text != nullptr && out_length != nullptr) *out_length = length;
    return text;
}

char *file_read_text(const char *path, size_t limit, size_t *out_length) {
    host_file file = files_host->open(path, FILE_READ);
    if (file == NO_FILE) return nullptr;
    char *text = read_open_file(file, limit, out_length);
    files_host->close(file);
    return text;
}

static const char *path_separators() {
    return files_host->separators != nullptr ? files_host->separators : "/";
}

const char *file_name_of(const char *path) {
    const char *name = path;
    for (const char *at = path; *at != '\0'; at++)
        if (strchr(path_separators(), *at) != nullptr) name = at + 1;
    return name;
}

void file_make_folders(const char *path) {
    const char *separators = path_separators();
    text_guard folder(text_copy(path));
    if (folder == nullptr || *path == '\0') return;
    for (char *at = folder.get() + 1; *at != '\0'; at++) {
        if (strchr(separators, *at) == nullptr) continue;
        char separator = *at;
        *at = '\0';
        file_facts facts;
        if (!files_host->facts_at(folder.get(), &facts)) files_host->CreateDirectoryA(folder.get());
        *at = separator;
    }
}

int64_t file_creation_time(const char *path) {
    int64_t created = files_host->creation_time(path);
    if (created < 0) return time_now();
    return created > INT64_C(0xFFFFFFFF) ? 0 : created;
}
