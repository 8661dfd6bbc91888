// Processes, one instance each, under the names that the kernel gives them.
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_sources.h"
#include "probes/os/host_text.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/task_files.h"
#include "probes/os/task_stat.h"

#include <algorithm>
#include <cstring>

// Only the first says whose it is.
static constexpr const char *ONE = "/proc/*/stat";
static constexpr const char *IO = "/proc/*/io";
static constexpr const char *PAGES = "/proc/*/statm";
static constexpr const char *STATUS = "/proc/*/status";
static constexpr const char *OPEN_FILES = "open:/proc/*/fd";

using task_figure = uint64_t(const task_stat &task);

// Times in milliseconds, as shares of time have them.
static uint64_t milliseconds(uint64_t steps) {
    uint32_t rate = counter_sources_host->clock_rate();
    return rate != 0 ? steps * 1000 / rate : 0;
}

static uint64_t processor_time(const task_stat &task) {
    return milliseconds(task.user_time + task.kernel_time);
}

static uint64_t user_time(const task_stat &task) {
    return milliseconds(task.user_time);
}

static uint64_t kernel_time(const task_stat &task) {
    return milliseconds(task.kernel_time);
}

static uint64_t page_faults(const task_stat &task) {
    return task.minor_faults + task.major_faults;
}

static uint64_t working_set(const task_stat &task) {
    return task.resident_pages * counter_sources_host->page_size();
}

static uint64_t virtual_bytes(const task_stat &task) {
    return task.virtual_bytes;
}

static uint64_t threads(const task_stat &task) {
    return task.threads;
}

static uint64_t parent(const task_stat &task) {
    return task.parent;
}

// The more urgent the higher: 1 to 40 for nice 19 to -20, from 41 on what runs in real time, by its priority
// there, which the kernel prints as -2 to -100, and as -101 what has a deadline.
static uint64_t base_priority(const task_stat &task) {
    if (task.priority < 0) return 40 + static_cast<uint64_t>(-1 - std::max<int64_t>(task.priority, -101));
    return static_cast<uint64_t>(20 - std::clamp<int64_t>(task.nice, -20, 19));
}

// The number of a process may belong to another one by now, which its name tells, or its start.
static bool find_task(const char *text, const char *instance, task_stat *out) {
    size_t length = strlen(text);
    if (length == 0 || text[length - 1] != '\n' || !parse_task_stat(text, text + length - 1, out))
        return false;
    return text_equal(out->name, instance);
}

static bool find_start(const char *text, const char *instance, uint64_t *out) {
    task_stat task;
    if (!find_task(text, instance, &task)) return false;
    *out = task.start;
    return true;
}

template <task_figure Figure>
static bool read_task(const char *text, const char *instance, counter_sample *out) {
    task_stat task;
    if (!find_task(text, instance, &task)) return false;
    *out = {.value = Figure(task), .base = 1, .origin = task.start};
    return true;
}

static bool read_age(const char *text, const char *instance, counter_sample *out) {
    task_stat task;
    if (!find_task(text, instance, &task)) return false;
    uint64_t now = counter_sources_host->uptime() / 1'000'000;
    uint64_t started = std::min(milliseconds(task.start), now);
    *out = {.value = now - started, .base = 1000, .origin = task.start};
    return true;
}

template <task_figure Figure>
static bool read_all_tasks(const char *text, const char *, counter_sample *out) {
    task_stat task;
    uint64_t count = 0;
    *out = {.value = 0, .base = 1};
    for (; next_task_stat(&text, &task); count++)
        out->value += Figure(task);
    return count > 0;
}

static bool read_id(const char *text, const char *instance, counter_sample *out) {
    if (!read_task<parent>(text, instance, out)) return false;
    out->value = static_cast<uint64_t>(parse_int64(text));
    return true;
}

// Of all processes whose file could be read, which for the agent of another user than root are its own.
template <class Record, bool (*Next)(const char **at, Record *out), uint64_t (*Figure)(const Record &record)>
static bool read_records(const char *text, const char *, counter_sample *out) {
    Record record;
    uint64_t count = 0;
    *out = {.value = 0, .base = 1};
    for (; Next(&text, &record); count++)
        out->value += Figure(record);
    return count > 0;
}

static uint64_t reads(const task_io &io) {
    return io.reads;
}

static uint64_t writes(const task_io &io) {
    return io.writes;
}

static uint64_t reads_and_writes(const task_io &io) {
    return io.reads + io.writes;
}

static uint64_t read_bytes(const task_io &io) {
    return io.read_bytes;
}

static uint64_t written_bytes(const task_io &io) {
    return io.written_bytes;
}

static uint64_t all_bytes(const task_io &io) {
    return io.read_bytes + io.written_bytes;
}

static bool has_io(const char *text, const char *) {
    task_io io;
    return next_task_io(&text, &io);
}

// The kernel counts the two at different moments.
static uint64_t private_working_set(const task_pages &pages) {
    uint64_t shared = std::min(pages.shared, pages.resident);
    return (pages.resident - shared) * counter_sources_host->page_size();
}

static uint64_t private_bytes(const task_pages &pages) {
    return pages.data * counter_sources_host->page_size();
}

static uint64_t virtual_peak(const task_memory &memory) {
    return memory.virtual_peak;
}

static uint64_t resident_peak(const task_memory &memory) {
    return memory.resident_peak;
}

static uint64_t swapped(const task_memory &memory) {
    return memory.swapped;
}

static bool next_count(const char **at, uint64_t *out) {
    const char *line = *at;
    if (next_line(line) == nullptr || !read_number(&line, out) || *line != '\n') return false;
    *at = line + 1;
    return true;
}

static uint64_t open_files(const uint64_t &count) {
    return count;
}

static bool has_open_files(const char *text, const char *) {
    uint64_t count = 0;
    return next_count(&text, &count);
}

// All together are no process.
static bool read_no_id(const char *, const char *, counter_sample *out) {
    *out = {.value = 0, .base = 1};
    return true;
}

static void list_tasks(const char *text, instance_visitor *visit, void *context) {
    task_stat task;
    bool more = visit(context, TOTAL_INSTANCE, nullptr);
    while (more && next_task_stat(&text, &task))
        more = visit(context, task.name, task.id);
}

template <task_figure Figure>
static constexpr counter_row row(const char *name, counter_type type, uint32_t detail) {
    return {name, type, detail, ONE, read_task<Figure>, ONE, read_all_tasks<Figure>};
}

template <uint64_t (*Figure)(const task_io &io)>
static constexpr counter_row io_row(const char *name) {
    constexpr sample_reader *read = read_records<task_io, next_task_io, Figure>;
    return {name, COUNTER_RATE, DETAIL_EXPERT, IO, read, IO, read, has_io};
}

template <uint64_t (*Figure)(const task_pages &pages)>
static constexpr counter_row pages_row(const char *name, uint32_t detail) {
    constexpr sample_reader *read = read_records<task_pages, next_task_pages, Figure>;
    return {name, COUNTER_LEVEL, detail, PAGES, read, PAGES, read};
}

template <uint64_t (*Figure)(const task_memory &memory)>
static constexpr counter_row memory_row(const char *name, uint32_t detail) {
    constexpr sample_reader *read = read_records<task_memory, next_task_memory, Figure>;
    return {name, COUNTER_LEVEL, detail, STATUS, read, STATUS, read};
}

static constexpr sample_reader *read_open_files = read_records<uint64_t, next_count, open_files>;

static constexpr counter_row COUNTERS[] = {
    // Of one processor; what keeps several busy is at 100, too.
    row<processor_time>("% Processor Time", COUNTER_TIME_SHARE, DETAIL_NOVICE),
    row<user_time>("% User Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED),
    row<kernel_time>("% Privileged Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED),
    // What lies in memory, that which is shared with others included.
    row<working_set>("Working Set", COUNTER_LEVEL, DETAIL_NOVICE),
    row<virtual_bytes>("Virtual Bytes", COUNTER_LEVEL, DETAIL_EXPERT),
    row<page_faults>("Page Faults/sec", COUNTER_RATE, DETAIL_NOVICE),
    row<threads>("Thread Count", COUNTER_LEVEL, DETAIL_ADVANCED),
    {"Elapsed Time", COUNTER_SECONDS, DETAIL_ADVANCED, ONE, read_age, ONE, read_no_id},
    {"Priority Base", COUNTER_LEVEL, DETAIL_EXPERT, ONE, read_task<base_priority>, ONE, read_no_id},
    pages_row<private_working_set>("Working Set - Private", DETAIL_EXPERT),
    // What the process may write to without sharing it, as it counts for Committed Bytes.
    pages_row<private_bytes>("Private Bytes", DETAIL_ADVANCED),
    memory_row<resident_peak>("Working Set Peak", DETAIL_EXPERT),
    memory_row<virtual_peak>("Virtual Bytes Peak", DETAIL_EXPERT),
    // What lies in swap.
    memory_row<swapped>("Page File Bytes", DETAIL_EXPERT),
    // Files, sockets, terminals: what goes through the calls that read and write, out of the cache or not. To
    // find out whether it may be read costs a scan more than all else of a process.
    io_row<reads>("IO Read Operations/sec"),
    io_row<writes>("IO Write Operations/sec"),
    io_row<reads_and_writes>("IO Data Operations/sec"),
    io_row<read_bytes>("IO Read Bytes/sec"),
    io_row<written_bytes>("IO Write Bytes/sec"),
    io_row<all_bytes>("IO Data Bytes/sec"),
    // Open files, sockets among them.
    {"Handle Count", COUNTER_LEVEL, DETAIL_ADVANCED, OPEN_FILES, read_open_files, OPEN_FILES, read_open_files,
     has_open_files},
    {"ID Process", COUNTER_LEVEL, DETAIL_NOVICE, ONE, read_id, ONE, read_no_id},
    {"Creating Process ID", COUNTER_LEVEL, DETAIL_EXPERT, ONE, read_task<parent>, ONE, read_no_id},
};

const counter_object process_object = {.name = "Process",
                                       .counters = COUNTERS,
                                       .instance_source = ONE,
                                       .list_instances = list_tasks,
                                       .find_origin = find_start};
