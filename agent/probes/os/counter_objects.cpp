#include "probes/os/counter_objects.h"

#include "platform/text.h"
#include "probes/os/host_text.h"
#include "probes/os/meminfo.h"
#include "probes/os/proc_stat.h"

#include <algorithm>
#include <cstring>

static bool read_uptime(const char *text, const char *, counter_sample *out) {
    // "1234.56": the kernel prints two digits behind the point.
    uint64_t hundredths = 0;
    if (next_line(text) == nullptr || !read_number(&text, &out->value) || *text++ != '.') return false;
    if (!read_number(&text, &hundredths) || hundredths > 99) return false;
    out->value = out->value * 100 + hundredths;
    out->base = 100;
    return true;
}

static bool read_level(const char *text, const char *key, counter_sample *out) {
    out->base = 1;
    return read_keyed(text, key, &out->value);
}

static bool read_context_switches(const char *text, const char *, counter_sample *out) {
    return read_level(text, "ctxt ", out);
}

static bool read_interrupts(const char *text, const char *, counter_sample *out) {
    return read_level(text, "intr ", out);
}

static bool read_processor_interrupts(const char *text, const char *instance, counter_sample *out) {
    return parse_processor_interrupts(text, instance, &out->value);
}

static bool read_queue_length(const char *text, const char *, counter_sample *out) {
    uint64_t running = 0;
    if (!read_keyed(text, "procs_running ", &running)) return false;
    out->value = running - std::min<uint64_t>(running, count_processors(text));
    out->base = 1;
    return true;
}

static bool read_processes(const char *text, const char *, counter_sample *out) {
    *out = {.value = 0, .base = 1};
    for (const char *behind = nullptr; (behind = next_line(text)) != nullptr; text = behind) {
        size_t digits = strspn(text, "0123456789");
        if (digits > 0 && text[digits] == '\n') out->value++;
    }
    return out->value > 0;
}

template <uint64_t (*Share)(const processor_times &)>
static bool read_share(const char *text, const char *instance, counter_sample *out) {
    processor_times times;
    if (!parse_processor_times(text, instance, &times)) return false;
    *out = {.value = Share(times), .base = total_time(times)};
    return true;
}

static uint64_t busy_time(const processor_times &times) {
    return total_time(times) - idle_time(times);
}

static bool read_total_share(const char *text, const char *, counter_sample *out) {
    return read_share<busy_time>(text, ALL_PROCESSORS, out);
}

static bool read_available(const char *text, const char *, counter_sample *out) {
    meminfo memory;
    if (!parse_meminfo(text, &memory)) return false;
    *out = {.value = memory.available, .base = 1};
    return true;
}

static bool read_committed(const char *text, const char *, counter_sample *out) {
    meminfo memory;
    if (!parse_meminfo(text, &memory)) return false;
    *out = {.value = memory.committed, .base = 1};
    return true;
}

static bool read_page_faults(const char *text, const char *, counter_sample *out) {
    return read_level(text, "pgfault ", out);
}

// A kernel without swap has no lines for it, and then no page goes there.
static bool read_swapped_pages(const char *text, const char *, counter_sample *out) {
    uint64_t in = 0;
    uint64_t gone_out = 0;
    if (!read_page_faults(text, nullptr, out)) return false;
    read_keyed(text, "pswpin ", &in);
    read_keyed(text, "pswpout ", &gone_out);
    out->value = in + gone_out;
    return true;
}

static void list_processors(const char *text, instance_visitor *visit, void *context) {
    char name[PROCESSOR_NAME_SIZE];
    bool more = visit(context, TOTAL_INSTANCE);
    while (more && next_processor(&text, name))
        more = visit(context, name);
}

static constexpr const char *STAT = "/proc/stat";
static constexpr const char *INTERRUPTS = "/proc/interrupts";
static constexpr const char *MEMINFO = "/proc/meminfo";
static constexpr const char *VMSTAT = "/proc/vmstat";
static constexpr const char *UPTIME = "/proc/uptime";
static constexpr const char *PROCESSES = "/proc/";

static constexpr counter_row SYSTEM_COUNTERS[] = {
    // Of all processors, as Processor(_Total) has it.
    {"% Total Processor Time", COUNTER_PERCENT, STAT, read_total_share},
    {"Context Switches/sec", COUNTER_RATE, STAT, read_context_switches},
    {"System Up Time", COUNTER_SECONDS, UPTIME, read_uptime},
    // The processes that the agent can see: those of its own process namespace.
    {"Processes", COUNTER_LEVEL, PROCESSES, read_processes},
    // Runnable threads beyond one for each processor, since the kernel's figure includes those that run.
    {"Processor Queue Length", COUNTER_LEVEL, STAT, read_queue_length},
};

// Shares of all time that the kernel has counted, which includes time taken away by a hypervisor. A processor
// that waits for a disk has nothing to run, and is idle.
static constexpr counter_row PROCESSOR_COUNTERS[] = {
    {"% Processor Time", COUNTER_PERCENT, STAT, read_share<busy_time>},
    // Programs, niced ones and guests of a virtual machine.
    {"% User Time", COUNTER_PERCENT, STAT, read_share<program_time>},
    // The kernel with its interrupts, hard and soft.
    {"% Privileged Time", COUNTER_PERCENT, STAT, read_share<kernel_time>},
    {"% Idle Time", COUNTER_PERCENT, STAT, read_share<idle_time>},
    // Only the large table of all interrupts tells them by processor.
    {"Interrupts/sec", COUNTER_RATE, INTERRUPTS, read_processor_interrupts, STAT, read_interrupts},
};

static constexpr counter_row MEMORY_COUNTERS[] = {
    {"Available Bytes", COUNTER_LEVEL, MEMINFO, read_available},
    {"Committed Bytes", COUNTER_LEVEL, MEMINFO, read_committed},
    // Those that needed no disk included.
    {"Page Faults/sec", COUNTER_RATE, VMSTAT, read_page_faults},
    // To and from swap. Reading a mapped file counts as reading a file.
    {"Pages/sec", COUNTER_RATE, VMSTAT, read_swapped_pages},
};

static constexpr counter_object OBJECTS[] = {
    {.name = "System", .counters = SYSTEM_COUNTERS},
    {.name = "Processor",
     .counters = PROCESSOR_COUNTERS,
     .instance_source = STAT,
     .list_instances = list_processors},
    {.name = "Memory", .counters = MEMORY_COUNTERS},
};

const std::span<const counter_object> counter_objects = OBJECTS;

const counter_object *find_counter_object(const char *name) {
    for (const counter_object &object : counter_objects)
        if (text_equal(object.name, name)) return &object;
    return nullptr;
}

const counter_row *find_counter_row(const counter_object *object, const char *name) {
    for (const counter_row &row : object->counters)
        if (text_equal(row.name, name)) return &row;
    return nullptr;
}
