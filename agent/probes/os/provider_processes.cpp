// Processes, one instance each, under the names that the kernel gives them.
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_sources.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/task_stat.h"

#include <cstring>

static constexpr const char *ONE = "/proc/*/stat";

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

// The number of a process may belong to another one by now, which its name tells.
template <task_figure Figure>
static bool read_task(const char *text, const char *instance, counter_sample *out) {
    task_stat task;
    size_t length = strlen(text);
    if (length == 0 || text[length - 1] != '\n' || !parse_task_stat(text, text + length - 1, &task))
        return false;
    if (!text_equal(task.name, instance)) return false;
    *out = {.value = Figure(task), .base = 1};
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
    {"ID Process", COUNTER_LEVEL, DETAIL_NOVICE, ONE, read_id, ONE, read_no_id},
    {"Creating Process ID", COUNTER_LEVEL, DETAIL_EXPERT, ONE, read_task<parent>, ONE, read_no_id},
};

const counter_object process_object = {
    .name = "Process", .counters = COUNTERS, .instance_source = ONE, .list_instances = list_tasks};
