#include "logcheck/memory_folders.h"

#include "fakes/test_host.h"

static memory_folders *the_folders;

struct folder_search {
    std::vector<std::pair<std::string, memory_folders::entry_kind>> entries;
    size_t position;
};

// Any number of separators in a row counts as one.
static std::string plain_path(const std::string &path) {
    std::string plain;
    for (char c : path)
        if (c != the_folders->style.separator || plain.empty() || plain.back() != c) plain += c;
    return plain;
}

static bool fails(const std::string &path) {
    auto found = the_folders->broken.find(path);
    if (found == the_folders->broken.end()) return false;
    the_host->last_error = found->second;
    return true;
}

static bool find_next(folder_search *search, folder_entry *out) {
    if (search->position == search->entries.size()) return false;
    const auto &[name, kind] = search->entries[search->position++];
    *out = {.name = name.c_str(),
            .folder = kind == memory_folders::FOLDER || kind == memory_folders::LINK_TO_FOLDER,
            .link = kind == memory_folders::LINK_TO_FILE || kind == memory_folders::LINK_TO_FOLDER};
    return true;
}

static folder_search *find_first(const char *path, folder_entry *out) {
    the_folders->listed.emplace_back(path);
    if (the_folders->when_listing) the_folders->when_listing(path);
    if (fails(path)) return nullptr;
    auto found = the_folders->folders.find(plain_path(path));
    if (found == the_folders->folders.end()) {
        the_host->last_error = 2;
        return nullptr;
    }
    auto *search = new folder_search{{{".", memory_folders::FOLDER}, {"..", memory_folders::FOLDER}}, 0};
    search->entries.insert(search->entries.end(), found->second.begin(), found->second.end());
    find_next(search, out);
    the_folders->open_searches++;
    return search;
}

static void find_close(folder_search *search) {
    the_folders->open_searches--;
    delete search;
}

static bool get_file_attributes(const char *path, path_facts *out) {
    the_folders->looked_at.emplace_back(path);
    if (fails(path)) return false;
    std::string plain = plain_path(path);
    size_t cut = plain.rfind(the_folders->style.separator) + 1;
    auto folder = the_folders->folders.find(plain.substr(0, cut));
    the_host->last_error = 2;
    if (folder == the_folders->folders.end()) return false;
    auto entry = folder->second.find(plain.substr(cut));
    if (entry == folder->second.end()) return false;
    memory_folders::entry_kind kind = entry->second;
    *out = {.folder = kind == memory_folders::FOLDER || kind == memory_folders::LINK_TO_FOLDER,
            .device = kind == memory_folders::DEVICE};
    return true;
}

memory_folders::memory_folders(const log_path_style &of)
    : style(of), ops{.style = &style,
                     .FindFirstFileA = find_first,
                     .FindNextFileA = find_next,
                     .FindClose = find_close,
                     .GetFileAttributesA = get_file_attributes} {
    the_folders = this;
    log_scan_host = &ops;
    log_path_style_in_force = &style;
}

memory_folders::~memory_folders() {
    log_path_style_in_force = &ROOT_PATHS;
    log_scan_host = nullptr;
    the_folders = nullptr;
}

void memory_folders::add(const std::string &path, entry_kind kind) {
    size_t cut = path.rfind(style.separator, path.size() - 2) + 1;
    std::string folder = path.substr(0, cut);
    folders[folder][path.substr(cut)] = kind;
    if (kind == FOLDER) folders[path + style.separator];
    size_t above = folder.rfind(style.separator, folder.size() - 2);
    if (folder.size() > 1 && above != std::string::npos) add(folder.substr(0, folder.size() - 1), FOLDER);
}
