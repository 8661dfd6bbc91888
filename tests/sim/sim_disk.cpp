#include "sim/sim_disk.h"

#include "fakes/notes.h"
#include "sim/host_sim.h"

#include <cstring>

static constexpr uint32_t CODE_MISSING = 2;
static constexpr uint32_t CODE_INPUT_OUTPUT = 5;
static constexpr uint32_t CODE_BAD_FILE = 9;
static constexpr uint32_t CODE_EXISTS = 17;
static constexpr uint32_t CODE_IS_FOLDER = 21;
static constexpr uint32_t CODE_INVALID = 22;
static constexpr uint32_t CODE_TOO_MANY_FILES = 24;
static constexpr uint32_t CODE_NO_SPACE = 28;

static constexpr host_file CONSOLE = 2;

sim_disk::sim_disk() {
    names["/"] = durable["/"] = std::make_shared<sim_inode>(sim_inode{.number = 0, .folder = true});
}

static std::string folder_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return "/";
    return slash == 0 ? "/" : path.substr(0, slash);
}

static std::shared_ptr<sim_inode> new_inode(sim_disk *disk, bool folder) {
    return std::make_shared<sim_inode>(
        sim_inode{.number = disk->next_number++, .folder = folder, .created = the_sim->wall_time()});
}

void sim_disk::make_folders(const std::string &path) {
    for (std::string folder = folder_of(path); folder != "/"; folder = folder_of(folder))
        if (!names.contains(folder)) durable[folder] = names[folder] = new_inode(this, true);
}

void sim_disk::put(const std::string &path, const std::string &content) {
    make_folders(path);
    auto inode = new_inode(this, false);
    inode->content = inode->synced = content;
    durable[path] = names[path] = inode;
}

void sim_disk::append(const std::string &path, const std::string &content) {
    overwrite(path, get(path) + content);
}

void sim_disk::overwrite(const std::string &path, const std::string &content) {
    sim_inode *inode = names.at(path).get();
    inode->content = inode->synced = content;
}

void sim_disk::rename(const std::string &from, const std::string &to) {
    for (auto *list : {&names, &durable}) {
        (*list)[to] = (*list)[from];
        list->erase(from);
    }
}

std::string sim_disk::get(const std::string &path) const {
    auto found = names.find(path);
    return found != names.end() ? found->second->content : "";
}

void sim_disk::cut_power() {
    std::mt19937_64 &chance = the_sim->scheduler.chance;
    names = chance() % 2 == 0 ? durable : names;
    for (auto &[path, inode] : names) {
        // What was not synced is gone, or some of it has got to the disk.
        bool partly = chance() % 2 == 0;
        size_t kept = inode->content.empty() ? 0 : chance() % (inode->content.size() + 1);
        if (inode->content != inode->synced)
            inode->synced = partly ? inode->content.substr(0, kept) : inode->synced;
        inode->content = inode->synced;
    }
    durable = names;
    open_files.clear();
    cut_at = 0;
}

// ---- what can go wrong

// Whether the operation fails this time, by the n-th call or by a broken path.
static bool fails(const char *name, const std::string &path, uint32_t code) {
    bool failing = sim_fails(name, path.c_str());
    if (failing) the_sim->last_error = code;
    if (the_sim->disk.broken.empty()) return failing;
    for (const auto &[start, broken_code] : the_sim->disk.broken[name]) {
        if (!path.starts_with(start)) continue;
        the_sim->last_error = broken_code;
        return true;
    }
    return failing;
}

// The power may go ahead of an operation that changes something.
static void about_to_change() {
    sim_disk *disk = &the_sim->disk;
    disk->changes++;
    if (disk->cut_at != 0 && --disk->cut_at == 0) the_sim->power_goes();
}

static sim_inode *find_name(const char *path) {
    auto found = the_sim->disk.names.find(path);
    if (found != the_sim->disk.names.end()) return found->second.get();
    the_sim->last_error = CODE_MISSING;
    return nullptr;
}

static bool has_folder(const std::string &path) {
    const sim_inode *folder = find_name(folder_of(path).c_str());
    return folder != nullptr && folder->folder;
}

static sim_open_file *find_open(host_file file) {
    auto found = the_sim->disk.open_files.find(file);
    if (found != the_sim->disk.open_files.end()) return &found->second;
    the_sim->last_error = CODE_BAD_FILE;
    return nullptr;
}

// ---- the operations

static bool make_file(const char *path) {
    if (!has_folder(path)) return false;
    about_to_change();
    the_sim->disk.names[path] = new_inode(&the_sim->disk, false);
    return true;
}

static host_file sim_open(const char *path, file_mode mode) {
    if (fails("open", path, CODE_TOO_MANY_FILES)) return NO_FILE;
    sim_disk *disk = &the_sim->disk;
    if (!disk->has(path) && (mode == FILE_READ ? find_name(path) == nullptr : !make_file(path)))
        return NO_FILE;
    std::shared_ptr<sim_inode> inode = disk->names[path];
    if (inode->folder) {
        the_sim->last_error = CODE_IS_FOLDER;
        return NO_FILE;
    }
    if (mode == FILE_REPLACE && !inode->content.empty()) {
        about_to_change();
        inode->content.clear();
    }
    disk->open_files[disk->next_handle] = {inode, path, 0, mode == FILE_APPEND};
    return disk->next_handle++;
}

static int64_t sim_read(host_file file, void *buffer, size_t size) {
    sim_open_file *open = find_open(file);
    if (open != nullptr && the_sim->disk.before_read) the_sim->disk.before_read(open->path);
    if (open == nullptr || fails("read", open->path, CODE_INPUT_OUTPUT)) return -1;
    const std::string &content = open->inode->content;
    size_t count = open->position < content.size() ? std::min(size, content.size() - open->position) : 0;
    memcpy(buffer, content.data() + open->position, count);
    open->position += count;
    return static_cast<int64_t>(count);
}

static int64_t sim_write(host_file file, const void *buffer, size_t size) {
    if (file == CONSOLE) {
        the_sim->console.append(static_cast<const char *>(buffer), size);
        note_text(std::string(static_cast<const char *>(buffer), size));
        return static_cast<int64_t>(size);
    }
    sim_open_file *open = find_open(file);
    if (open == nullptr || fails("write", open->path, CODE_NO_SPACE)) return -1;
    about_to_change();
    std::string &content = open->inode->content;
    if (open->appends) open->position = content.size();
    if (content.size() < open->position + size) content.resize(open->position + size);
    memcpy(content.data() + open->position, buffer, size);
    open->position += size;
    return static_cast<int64_t>(size);
}

static bool sim_seek(host_file file, int64_t offset, file_origin origin) {
    sim_open_file *open = find_open(file);
    if (open == nullptr || fails("seek", open->path, CODE_INPUT_OUTPUT)) return false;
    int64_t position = offset + (origin == FROM_END ? static_cast<int64_t>(open->inode->content.size()) : 0);
    if (position < 0) {
        the_sim->last_error = CODE_INVALID;
        return false;
    }
    open->position = static_cast<size_t>(position);
    return true;
}

static int64_t sim_tell(host_file file) {
    const sim_open_file *open = find_open(file);
    if (open == nullptr || fails("tell", open->path, CODE_INPUT_OUTPUT)) return -1;
    return static_cast<int64_t>(open->position);
}

static bool sim_sync(host_file file) {
    const sim_open_file *open = find_open(file);
    if (open == nullptr || fails("sync", open->path, CODE_INPUT_OUTPUT)) return false;
    about_to_change();
    open->inode->synced = open->inode->content;
    return true;
}

static bool sim_close(host_file file) {
    const sim_open_file *open = find_open(file);
    if (open == nullptr) return false;
    bool failing = fails("close", open->path, CODE_INPUT_OUTPUT);
    the_sim->disk.open_files.erase(file); // the handle is gone in either case
    return !failing;
}

static file_facts facts_from(const sim_inode &inode) {
    return {.regular = !inode.folder,
            .volume = 1,
            .number = inode.number,
            .size = static_cast<int64_t>(inode.content.size())};
}

static bool sim_facts_of(host_file file, file_facts *out) {
    const sim_open_file *open = find_open(file);
    if (open == nullptr || fails("facts", open->path, CODE_INPUT_OUTPUT)) return false;
    *out = facts_from(*open->inode);
    return true;
}

static bool sim_facts_at(const char *path, file_facts *out) {
    if (fails("facts", path, CODE_INPUT_OUTPUT)) return false;
    const sim_inode *inode = find_name(path);
    if (inode == nullptr) return false;
    *out = facts_from(*inode);
    return true;
}

static bool rename_entry(const char *from, const char *to) {
    if (fails("rename", from, CODE_INPUT_OUTPUT) || find_name(from) == nullptr || !has_folder(to))
        return false;
    about_to_change();
    auto &names = the_sim->disk.names;
    names[to] = names[from];
    names.erase(from);
    return true;
}

static bool sim_move(const char *from, const char *to) {
    if (!the_sim->disk.has(to)) return rename_entry(from, to);
    sim_note("rename", from);
    the_sim->last_error = CODE_EXISTS;
    return false;
}

static bool sim_move_replacing(const char *from, const char *to) {
    if (!rename_entry(from, to)) return false;
    about_to_change();
    the_sim->disk.durable = the_sim->disk.names;
    return true;
}

static bool sim_delete(const char *path) {
    if (fails("delete", path, CODE_INPUT_OUTPUT) || find_name(path) == nullptr) return false;
    about_to_change();
    the_sim->disk.names.erase(path);
    return true;
}

static bool sim_make_executable(const char *path) {
    if (fails("chmod", path, CODE_INPUT_OUTPUT) || find_name(path) == nullptr) return false;
    the_sim->disk.names[path]->executable = true;
    return true;
}

static bool sim_create_directory(const char *path) {
    if (fails("mkdir", path, CODE_NO_SPACE) || !has_folder(path)) return false;
    if (the_sim->disk.has(path)) {
        the_sim->last_error = CODE_EXISTS;
        return false;
    }
    about_to_change();
    the_sim->disk.names[path] = new_inode(&the_sim->disk, true);
    return true;
}

static int64_t sim_creation_time(const char *path) {
    if (fails("open", path, CODE_TOO_MANY_FILES)) return 0;
    const sim_inode *inode = find_name(path);
    if (inode == nullptr) return 0;
    return the_sim->disk.keeps_creation_times ? inode->created : -1;
}

static void sim_restart_age(const char *path) {
    sim_note("restart_age", path);
    if (!the_sim->disk.has(path) && !make_file(path)) return;
    the_sim->disk.names[path]->created = the_sim->wall_time();
}

const files_ops sim_files = {
    .stderr_handle = CONSOLE,
    .open = sim_open,
    .read = sim_read,
    .write = sim_write,
    .seek64 = sim_seek,
    .tell64 = sim_tell,
    .sync = sim_sync,
    .close = sim_close,
    .facts_of = sim_facts_of,
    .facts_at = sim_facts_at,
    .MoveFileA = sim_move,
    .MoveFileExA = sim_move_replacing,
    .DeleteFileA = sim_delete,
    .CreateDirectoryA = sim_create_directory,
    .make_executable = sim_make_executable,
    .creation_time = sim_creation_time,
    .restart_age = sim_restart_age,
};
