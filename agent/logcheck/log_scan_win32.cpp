#include "logcheck/log_scan_ops.h"
#include "platform/heap.h"
#include "platform/text.h"

#include <cstring>
#include <windows.h>

struct folder_search {
    HANDLE handle;
    WIN32_FIND_DATAA found;
};

// Junctions and links are folders and files like others here.
static void tell_entry(const folder_search *search, folder_entry *out) {
    *out = {.name = search->found.cFileName,
            .folder = (search->found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0};
}

// `path` with the wildcard that stands for all entries.
static text_guard all_entries(const char *path) {
    size_t length = strlen(path);
    text_guard pattern(static_cast<char *>(heap_alloc(length + 2)));
    if (pattern == nullptr) return {};
    memcpy(pattern.get(), path, length);
    pattern.get()[length] = '*';
    return pattern;
}

static folder_search *find_first(const char *path, folder_entry *out) {
    text_guard pattern(all_entries(path));
    auto *search = heap_new<folder_search>();
    if (pattern == nullptr || search == nullptr) {
        heap_free(search);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    search->handle = FindFirstFileA(pattern.get(), &search->found);
    if (search->handle == INVALID_HANDLE_VALUE) {
        DWORD error = GetLastError();
        heap_free(search);
        SetLastError(error);
        return nullptr;
    }
    tell_entry(search, out);
    return search;
}

static bool find_next(folder_search *search, folder_entry *out) {
    if (!FindNextFileA(search->handle, &search->found)) return false;
    tell_entry(search, out);
    return true;
}

static void find_close(folder_search *search) {
    FindClose(search->handle);
    heap_free(search);
}

static bool get_file_attributes(const char *path, path_facts *out) {
    DWORD attributes = GetFileAttributesA(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    *out = {.folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
            .device = (attributes & FILE_ATTRIBUTE_DEVICE) != 0};
    return true;
}

const log_scan_ops log_scan_ops_host = {
    .style = &DRIVE_PATHS,
    .FindFirstFileA = find_first,
    .FindNextFileA = find_next,
    .FindClose = find_close,
    .GetFileAttributesA = get_file_attributes,
};
