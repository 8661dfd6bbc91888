// The texts in which a kernel tells its own state: each reader alone, and the counters that are made of them.
// The first byte chooses; in the counters' case every source holds the same text.
#include "fuzz/fuzz_host.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_provider.h"
#include "probes/os/diskstats.h"
#include "probes/os/drives_ops.h"
#include "probes/os/network_counts.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/swaps.h"
#include "probes/os/task_files.h"
#include "probes/os/task_stat.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

static std::string the_text;
static uint64_t now;

static int64_t read_text(const char *, char *buffer, size_t size) {
    size_t length = std::min(size, the_text.size());
    memcpy(buffer, the_text.data(), length);
    return static_cast<int64_t>(length);
}

static uint64_t count_ticks() {
    return now += 10'000'000;
}

static uint32_t hundred() {
    return 100;
}

static int64_t length_of_text(const char *) {
    return static_cast<int64_t>(the_text.size());
}

static constexpr counter_sources_ops SOURCES = {.read_source = read_text,
                                                .ticks = count_ticks,
                                                .uptime = count_ticks,
                                                .page_size = hundred,
                                                .clock_rate = hundred,
                                                .count_open_files = length_of_text};

static const char *one_root(uint32_t index) {
    return index == 0 ? "/" : nullptr;
}

static uint32_t fixed(const char *) {
    return DRIVE_FIXED;
}

static mount_search *nothing_below(const char *, char *, uint32_t) {
    return nullptr;
}

static bool first_disk(const char *, uint32_t *out_major, uint32_t *out_minor) {
    *out_major = 8;
    *out_minor = 0;
    return true;
}

static bool no_space(const char *, uint64_t *, uint64_t *, uint64_t *) {
    return false;
}

static constexpr drives_ops DRIVES = {.drive_root = one_root,
                                      .GetDriveTypeA = fixed,
                                      .GetDiskFreeSpaceExA = no_space,
                                      .drive_device = first_disk,
                                      .FindFirstVolumeMountPointA = nothing_below};

static void read_disks(const char *text) {
    disk_line line;
    for (const char *at = text; next_disk_line(&at, &line);) {
        char name[DISK_NAME_SIZE + 16];
        print_disk_instance(line, name, sizeof name);
        disk_counts counts;
        uint64_t disks = 0;
        bool found = parse_disk_counts(text, name, &counts, &disks);
        fuzz_require(found && disks == 1, "a disk that is listed has counts");
        if (is_whole_disk(text, line))
            fuzz_require(parse_disk_counts(text, ALL_DISKS, &counts, &disks) && disks > 0,
                         "it is one of all");
    }
}

static void read_network(const char *text) {
    interface_line line;
    for (const char *at = text; next_interface_line(&at, &line);)
        fuzz_require(line.name[0] != '\0' && strpbrk(line.name, ":\n") == nullptr, "an interface has a name");
    static_cast<void>(parse_link_speed(text));
    uint64_t count = 0;
    for (const char *name : {"InSegs", "CurrEstab", ""})
        static_cast<void>(parse_protocol_count(text, "Tcp", name, &count));
}

static void read_tasks(const char *text) {
    task_stat task;
    for (const char *at = text; next_task_stat(&at, &task);)
        fuzz_require(strspn(task.id, "0123456789") == strlen(task.id) && task.id[0] != '\0',
                     "a process has a number");
    task_io io;
    for (const char *at = text; next_task_io(&at, &io);)
        fuzz_require(at > text && at[-1] == '\n', "a record ends with its line");
    task_pages pages;
    for (const char *at = text; next_task_pages(&at, &pages);)
        fuzz_require(at > text && at[-1] == '\n', "a record ends with its line");
    task_memory memory;
    for (const char *at = text; next_task_memory(&at, &memory);)
        fuzz_require(memory.swapped % 1024 == 0 && memory.resident_peak % 1024 == 0, "memory is in kB");
}

static void read_swaps(const char *text) {
    swap_line line;
    for (const char *at = text; next_swap_line(&at, &line);) {
        uint64_t used = 0;
        uint64_t size = 0;
        fuzz_require(parse_swap_use(text, line.name, &used, &size), "a place that is listed has a use");
    }
}

static void sample_twice(const char *path) {
    pdh_query *query = nullptr;
    pdh_counter *counter = nullptr;
    if (provider_open_query(&query) != PDH_OK) return;
    if (provider_add_counter(query, path, &counter) == PDH_OK) {
        for (int i = 0; i < 2; i++) {
            static_cast<void>(provider_collect(query));
            double value = 0;
            uint32_t status = provider_format_value(counter, PDH_FMT_DOUBLE, &value);
            fuzz_require(status == PDH_OK || status == PDH_INVALID_DATA,
                         "a counter has a value or waits for one");
            fuzz_require(std::isfinite(value), "a value is a number");
        }
    }
    provider_close_query(query);
}

static std::vector<char> list_of(const counter_object *object) {
    uint32_t counters = 0;
    uint32_t size = 0;
    provider_enum_object_items(object->name, nullptr, &counters, nullptr, &size, 400);
    std::vector<char> list(size);
    std::vector<char> rows(counters);
    uint32_t status =
        provider_enum_object_items(object->name, rows.data(), &counters, list.data(), &size, 400);
    fuzz_require(status == PDH_OK, "what was sized fits");
    return list;
}

static void sample_counters(const counter_object *object) {
    std::vector<char> list = list_of(object);
    int instances = 0;
    const char *name = list.data();
    do {
        for (const counter_row &row : object->counters) {
            std::string instance = object->list_instances != nullptr ? std::string("(") + name + ")" : "";
            sample_twice((std::string("\\") + object->name + instance + "\\" + row.name).c_str());
        }
        name += *name != '\0' ? strlen(name) + 1 : 0;
    } while (*name != '\0' && ++instances < 3);
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    uint8_t choice = input.take_byte();
    the_text = input.take_rest();
    // A text ends at its first zero byte, as for whoever reads it.
    the_text.resize(strlen(the_text.c_str()));
    counter_sources_host = &SOURCES;
    drives_host = &DRIVES;
    now = 0;
    switch (choice % 5) {
    case 0:
        read_disks(the_text.c_str());
        break;
    case 1:
        read_network(the_text.c_str());
        break;
    case 2:
        read_tasks(the_text.c_str());
        break;
    case 3:
        read_swaps(the_text.c_str());
        break;
    default:
        sample_counters(counter_objects[choice / 5 % counter_objects.size()]);
    }
    counter_sources_reset();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
