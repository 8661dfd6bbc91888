#include "logcheck/log_scan_ops.h"
#include "platform/heap.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

struct folder_search {
    DIR *folder;
};

static bool find_next(folder_search *search, folder_entry *out);

static void find_close(folder_search *search) {
    closedir(search->folder);
    heap_free(search);
}

static folder_search *find_first(const char *path, folder_entry *out) {
    DIR *folder = opendir(path);
    if (folder == nullptr) return nullptr;
    auto *search = heap_new<folder_search>();
    if (search == nullptr) {
        closedir(folder);
        errno = ENOMEM;
        return nullptr;
    }
    search->folder = folder;
    // Not every file system lists the folder itself.
    if (!find_next(search, out)) *out = {.name = ".", .folder = true};
    return search;
}

// The type that stands in the folder spares a look at the entry itself.
static bool find_next(folder_search *search, folder_entry *out) {
    const dirent *entry = readdir(search->folder);
    if (entry == nullptr) return false;
    *out = {.name = entry->d_name, .folder = entry->d_type == DT_DIR, .link = entry->d_type == DT_LNK};
    if (entry->d_type != DT_UNKNOWN && entry->d_type != DT_LNK) return true;
    int folder = dirfd(search->folder);
    struct stat found;
    if (fstatat(folder, entry->d_name, &found, AT_SYMLINK_NOFOLLOW) != 0) return true;
    out->link = S_ISLNK(found.st_mode);
    if (out->link && fstatat(folder, entry->d_name, &found, 0) != 0) return true;
    out->folder = S_ISDIR(found.st_mode);
    return true;
}

static bool get_file_attributes(const char *path, path_facts *out) {
    struct stat found;
    if (stat(path, &found) != 0) return false;
    *out = {.folder = S_ISDIR(found.st_mode), .device = !S_ISDIR(found.st_mode) && !S_ISREG(found.st_mode)};
    return true;
}

const log_scan_ops log_scan_ops_host = {
    .style = &ROOT_PATHS,
    .FindFirstFileA = find_first,
    .FindNextFileA = find_next,
    .FindClose = find_close,
    .GetFileAttributesA = get_file_attributes,
};
