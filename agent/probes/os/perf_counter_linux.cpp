#include "platform/host_files_linux.h"
#include "probes/os/counter_provider.h"
#include "probes/os/perf_counter_ops.h"

#include <cstring>
#include <ctime>
#include <sys/stat.h>

// The kernel refuses as invalid to read a value that there is none of, as the speed of a link that is down.
static int64_t read_file(const char *path, char *buffer, size_t size) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return -1;
    int64_t length = read_to_end(file, buffer, size);
    if (length < 0 && errno == EINVAL) length = 0;
    close(file);
    return length;
}

static int64_t read_source(const char *path, char *buffer, size_t size) {
    bool folder = path[strlen(path) - 1] == '/';
    return folder ? list_host_folder(path, buffer, size) : read_file(path, buffer, size);
}

static uint64_t read_clock(clockid_t clock) {
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

static uint64_t ticks() {
    return read_clock(CLOCK_MONOTONIC);
}

static uint64_t uptime() {
    return read_clock(CLOCK_BOOTTIME);
}

static uint32_t page_size() {
    return static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
}

static uint32_t clock_rate() {
    return static_cast<uint32_t>(sysconf(_SC_CLK_TCK));
}

// The number of a folder's open files as its size, or 0.
static int64_t size_of_folder(const char *folder) {
    struct stat found;
    return stat(folder, &found) == 0 ? found.st_size : -1;
}

static int64_t count_names(const char *path) {
    DIR *folder = opendir(path);
    if (folder == nullptr) return -1;
    int64_t count = 0;
    while (const dirent *entry = readdir(folder))
        count += entry->d_name[0] != '.';
    closedir(folder);
    return count;
}

// Kernels from 6.2 on tell the number as the size of the folder, to anybody; older ones have a size of 0
// there. The agent itself has files open.
static int64_t count_open_files(const char *folder) {
    static const bool has_size = size_of_folder("/proc/self/fd") > 0;
    return has_size ? size_of_folder(folder) : count_names(folder);
}

const counter_sources_ops counter_sources_ops_host = {.read_source = read_source,
                                                      .ticks = ticks,
                                                      .uptime = uptime,
                                                      .page_size = page_size,
                                                      .clock_rate = clock_rate,
                                                      .count_open_files = count_open_files};

const perf_counter_ops perf_counter_ops_host = {
    .PdhOpenQueryA = provider_open_query,
    .PdhAddCounterA = provider_add_counter,
    .PdhRemoveCounter = provider_remove_counter,
    .PdhCloseQuery = provider_close_query,
    .PdhCollectQueryData = provider_collect,
    .PdhGetFormattedCounterValue = provider_format_value,
    .PdhLookupPerfNameByIndexA = provider_name_by_index,
    .PdhLookupPerfIndexByNameA = provider_index_by_name,
    .RegQueryValueExA = provider_query_value,
    .PdhEnumObjectsA = provider_enum_objects,
    .PdhEnumObjectItemsA = provider_enum_object_items,
    .PdhGetCounterInfoA = provider_counter_info,
};
