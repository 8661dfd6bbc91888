#include "sim/sim_folders.h"

#include "platform/heap.h"
#include "sim/host_sim.h"

static constexpr uint32_t CODE_MISSING = 2;
static constexpr uint32_t CODE_INPUT_OUTPUT = 5;

// The names in a folder as they are when its listing begins, and where it has got to.
struct folder_search {
    std::vector<std::pair<std::string, bool>> entries;
    size_t position;
};

// A path that ends in a separator is that of the folder.
static const sim_inode *find_inode(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    auto found = the_sim->disk.names.find(path);
    if (found != the_sim->disk.names.end()) return found->second.get();
    the_sim->last_error = CODE_MISSING;
    return nullptr;
}

static bool fails(const char *name, const char *path) {
    bool failing = sim_fails(name, path);
    if (failing) the_sim->last_error = CODE_INPUT_OUTPUT;
    return failing;
}

static bool sim_find_next(folder_search *search, folder_entry *out) {
    if (search->position == search->entries.size()) return false;
    const auto &[name, folder] = search->entries[search->position++];
    *out = {.name = name.c_str(), .folder = folder};
    return true;
}

static folder_search *sim_find_first(const char *path, folder_entry *out) {
    if (fails("FindFirstFileA", path)) return nullptr;
    const sim_inode *inode = find_inode(path);
    if (inode == nullptr || !inode->folder) return nullptr;
    auto *search = new folder_search{{{".", true}, {"..", true}}, 0};
    std::string start = path;
    for (const auto &[name, entry] : the_sim->disk.names)
        if (name.size() > start.size() && name.starts_with(start) &&
            name.find('/', start.size()) == std::string::npos)
            search->entries.emplace_back(name.substr(start.size()), entry->folder);
    sim_find_next(search, out);
    return search;
}

static void sim_find_close(folder_search *search) {
    delete search;
}

static bool sim_attributes(const char *path, path_facts *out) {
    if (fails("GetFileAttributesA", path)) return false;
    const sim_inode *inode = find_inode(path);
    if (inode == nullptr) return false;
    *out = {.folder = inode->folder};
    return true;
}

const log_scan_ops sim_log_scan = {
    .style = &ROOT_PATHS,
    .FindFirstFileA = sim_find_first,
    .FindNextFileA = sim_find_next,
    .FindClose = sim_find_close,
    .GetFileAttributesA = sim_attributes,
};
