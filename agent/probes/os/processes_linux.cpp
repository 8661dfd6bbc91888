#include "platform/heap.h"
#include "platform/host_files_linux.h"
#include "platform/text.h"
#include "probes/os/process_list.h"
#include "probes/os/processes_ops.h"

#include <cstdio>
#include <cstring>
#include <dirent.h>

struct process {
    uint32_t id;
    bool cut; // the name that was given
};

static constexpr auto SNAPSHOT_FAILED = static_cast<int32_t>(0xC0000001);

// The folder of the processes stays open: every path then starts there. -1 for a failure.
static int proc_folder() {
    static int folder = -1;
    if (folder < 0) folder = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return folder;
}

static int64_t read_file(uint32_t id, const char *file, char *buffer, size_t size) {
    char path[32];
    snprintf(path, sizeof path, "%u/%s", id, file);
    int opened = openat(proc_folder(), path, O_RDONLY | O_CLOEXEC);
    if (opened < 0) return -1;
    // The kernel writes such a file anew for each read: one is all there is to have.
    ssize_t length = read(opened, buffer, size - 1);
    close(opened);
    buffer[length > 0 ? length : 0] = '\0';
    return length;
}

static int64_t read_link(uint32_t id, const char *file, char *buffer, size_t size) {
    char path[32];
    snprintf(path, sizeof path, "%u/%s", id, file);
    ssize_t length = readlinkat(proc_folder(), path, buffer, size - 1);
    buffer[length > 0 ? length : 0] = '\0';
    return length;
}

static constexpr process_files FILES = {.read = read_file, .read_link = read_link};

// Writes the ids of all processes, as many as fit. How many there are; -1 for a failure.
static int64_t list_ids(uint32_t *ids, size_t room) {
    alignas(dirent64) char entries[32768];
    int64_t count = 0;
    int folder = proc_folder();
    if (folder < 0 || lseek(folder, 0, SEEK_SET) != 0) return -1;
    ssize_t length = 0;
    while ((length = getdents64(folder, entries, sizeof entries)) > 0)
        for (ssize_t at = 0; at < length;) {
            auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            at += entry->d_reclen;
            int32_t id = parse_atoi(entry->d_name); // 0 for what is no process
            if (id <= 0) continue;
            if (static_cast<size_t>(count) < room) ids[count] = static_cast<uint32_t>(id);
            count++;
        }
    return length < 0 ? -1 : count;
}

static bool is_there(const char *) {
    return true;
}

static int32_t take_snapshot(uint32_t, uint8_t *buffer, uint32_t size) {
    auto *ids = reinterpret_cast<uint32_t *>(buffer);
    size_t room = size / sizeof *ids;
    int64_t count = list_ids(ids, room);
    if (count < 0) return SNAPSHOT_FAILED;
    return static_cast<size_t>(count) <= room ? 0 : STATUS_INFO_LENGTH_MISMATCH;
}

static bool next_process(process_walk *walk, char *name, uint32_t size) {
    return next_listed_process(FILES, walk, name, size);
}

static bool enum_processes(uint32_t *ids, uint32_t size, uint32_t *out_returned) {
    size_t room = size / sizeof *ids;
    int64_t count = list_ids(ids, room);
    if (count < 0) return false;
    size_t listed = static_cast<size_t>(count) < room ? static_cast<size_t>(count) : room;
    *out_returned = static_cast<uint32_t>(listed * sizeof *ids);
    return true;
}

static process *open_process(uint32_t, uint32_t id) {
    char path[32];
    snprintf(path, sizeof path, "%u/stat", id);
    if (faccessat(proc_folder(), path, R_OK, 0) != 0) return nullptr;
    auto *opened = heap_new<process>();
    if (opened != nullptr)
        opened->id = id;
    else
        errno = ENOMEM;
    return opened;
}

// The program is the only module that is told, and needs no handle.
static bool enum_modules(process *, process_module **out_first, uint32_t size, uint32_t *out_needed) {
    *out_first = nullptr;
    *out_needed = size;
    return true;
}

static bool module_name(process *opened, process_module *, char *name, uint32_t size) {
    return read_process_name(FILES, opened->id, name, size, &opened->cut);
}

static bool name_is_cut(const process *opened) {
    return opened->cut;
}

static void close_process(process *opened) {
    heap_free(opened);
}

const processes_ops processes_ops_host = {
    .GetModuleHandleA = is_there,
    .GetProcAddress = is_there,
    .ZwQuerySystemInformation = take_snapshot,
    .next_process = next_process,
    .EnumProcesses = enum_processes,
    .OpenProcess = open_process,
    .EnumProcessModules = enum_modules,
    .GetModuleBaseNameA = module_name,
    .name_is_cut = name_is_cut,
    .CloseHandle = close_process,
};
