#include "probes/os/task_files.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <algorithm>
#include <cstring>

// The number of the line at `*at`, which has to have this key and then moves on to the next one.
static bool take_line(const char **at, const char *key, uint64_t *out) {
    const char *behind = next_line(*at);
    if (behind == nullptr || !text_starts_with(*at, key)) return false;
    const char *number = *at + strlen(key);
    if (!read_number(&number, out) || *number != '\n') return false;
    *at = behind;
    return true;
}

// The kernel prints bytes ahead of calls, reads ahead of writes, and then what went to disks.
bool next_task_io(const char **at, task_io *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        *out = {};
        if (!take_line(&line, "rchar:", &out->read_bytes) ||
            !take_line(&line, "wchar:", &out->written_bytes) || !take_line(&line, "syscr:", &out->reads) ||
            !take_line(&line, "syscw:", &out->writes))
            continue;
        *at = line;
        return true;
    }
    return false;
}

// "size resident shared text lib data dt"
static bool read_pages(const char *line, task_pages *out) {
    uint64_t unused = 0;
    *out = {};
    uint64_t *const columns[] = {&unused, &out->resident, &out->shared, &unused,
                                 &unused, &out->data,     &unused};
    for (uint64_t *column : columns)
        if (!read_number(&line, column)) return false;
    return *line == '\n';
}

bool next_task_pages(const char **at, task_pages *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (read_pages(line, out)) return true;
    }
    return false;
}

static void take_bytes(const char *line, const char *key, uint64_t *out) {
    if (!text_starts_with(line, key)) return;
    const char *number = line + strlen(key);
    uint64_t kilobytes = 0;
    if (read_number(&number, &kilobytes)) *out = std::min(kilobytes, UINT64_MAX / 1024) * 1024;
}

// A record begins with the name. Behind the memory stands the number of threads, so that one that was cut off
// is not taken for one without memory.
bool next_task_memory(const char **at, task_memory *out) {
    bool begun = false;
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (text_starts_with(line, "Name:")) {
            begun = true;
            *out = {};
        }
        if (!begun) continue;
        take_bytes(line, "VmPeak:", &out->virtual_peak);
        take_bytes(line, "VmHWM:", &out->resident_peak);
        take_bytes(line, "VmSwap:", &out->swapped);
        if (text_starts_with(line, "Threads:")) return true;
    }
    return false;
}
