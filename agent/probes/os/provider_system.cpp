// Processors, memory, and what belongs to the host as a whole.
#include "probes/os/counter_objects.h"

#include "platform/text.h"
#include "probes/os/host_text.h"
#include "probes/os/meminfo.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/proc_stat.h"
#include "probes/os/swaps.h"

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

static bool read_soft_interrupts(const char *text, const char *, counter_sample *out) {
    return read_level(text, "softirq ", out);
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

template <uint64_t (*Share)(const processor_times &)>
static bool read_total_share(const char *text, const char *, counter_sample *out) {
    return read_share<Share>(text, ALL_PROCESSORS, out);
}

using memory_figure = uint64_t(const meminfo &memory);

static uint64_t available(const meminfo &memory) {
    return memory.available;
}

static uint64_t committed(const meminfo &memory) {
    return memory.committed;
}

static uint64_t commit_limit(const meminfo &memory) {
    return memory.commit_limit;
}

static uint64_t cached(const meminfo &memory) {
    return memory.cached;
}

static uint64_t kernel_memory(const meminfo &memory) {
    return memory.unreclaimable;
}

static uint64_t kernel_caches(const meminfo &memory) {
    return memory.reclaimable;
}

static uint64_t unused(const meminfo &memory) {
    return memory.unused;
}

static uint64_t dirty(const meminfo &memory) {
    return memory.dirty;
}

template <memory_figure Figure, uint64_t Unit = 1>
static bool read_memory(const char *text, const char *, counter_sample *out) {
    meminfo memory;
    if (!parse_meminfo(text, &memory)) return false;
    *out = {.value = Figure(memory), .base = Unit};
    return true;
}

static bool read_committed_part(const char *text, const char *, counter_sample *out) {
    meminfo memory;
    if (!parse_meminfo(text, &memory) || memory.commit_limit == 0) return false;
    *out = {.value = std::min(memory.committed, memory.commit_limit), .base = memory.commit_limit};
    return true;
}

static bool read_page_faults(const char *text, const char *, counter_sample *out) {
    return read_level(text, "pgfault ", out);
}

static bool read_major_faults(const char *text, const char *, counter_sample *out) {
    return read_level(text, "pgmajfault ", out);
}

// A kernel without swap has no lines for it, and then no page goes there.
template <bool In, bool Out>
static bool read_swapped_pages(const char *text, const char *, counter_sample *out) {
    uint64_t in = 0;
    uint64_t gone_out = 0;
    if (!read_page_faults(text, nullptr, out)) return false;
    if (In) read_keyed(text, "pswpin ", &in);
    if (Out) read_keyed(text, "pswpout ", &gone_out);
    out->value = in + gone_out;
    return true;
}

// "0.20 0.18 0.12 2/588 4711": runnable and all threads.
static bool read_threads(const char *text, const char *, counter_sample *out) {
    const char *slash = strchr(text, '/');
    if (slash == nullptr || next_line(text) == nullptr) return false;
    slash++;
    out->base = 1;
    return read_number(&slash, &out->value);
}

static bool read_swap_use(const char *text, const char *instance, counter_sample *out) {
    return parse_swap_use(text, instance, &out->value, &out->base);
}

static void list_swaps(const char *text, instance_visitor *visit, void *context) {
    swap_line line;
    bool more = true;
    uint32_t count = 0;
    for (; more && next_swap_line(&text, &line); count++)
        more = visit(context, line.name, nullptr);
    if (more && count > 0) visit(context, ALL_SWAPS, nullptr);
}

static void list_processors(const char *text, instance_visitor *visit, void *context) {
    char name[PROCESSOR_NAME_SIZE];
    bool more = visit(context, TOTAL_INSTANCE, nullptr);
    while (more && next_processor(&text, name))
        more = visit(context, name, nullptr);
}

static constexpr const char *STAT = "/proc/stat";
static constexpr const char *INTERRUPTS = "/proc/interrupts";
static constexpr const char *MEMINFO = "/proc/meminfo";
static constexpr const char *VMSTAT = "/proc/vmstat";
static constexpr const char *UPTIME = "/proc/uptime";
static constexpr const char *LOAD = "/proc/loadavg";
static constexpr const char *PROCESSES = "/proc/";
static constexpr const char *SWAPS = "/proc/swaps";

static constexpr counter_row SYSTEM_COUNTERS[] = {
    // Of all processors, as Processor(_Total) has it.
    {"% Total Processor Time", COUNTER_PERCENT, DETAIL_NOVICE, STAT, read_total_share<busy_time>},
    {"% Total User Time", COUNTER_PERCENT, DETAIL_ADVANCED, STAT, read_total_share<program_time>},
    {"% Total Privileged Time", COUNTER_PERCENT, DETAIL_ADVANCED, STAT, read_total_share<kernel_time>},
    {"% Total Interrupt Time", COUNTER_PERCENT, DETAIL_EXPERT, STAT, read_total_share<interrupt_time>},
    {"% Total DPC Time", COUNTER_PERCENT, DETAIL_EXPERT, STAT, read_total_share<soft_interrupt_time>},
    {"Total Interrupts/sec", COUNTER_RATE, DETAIL_ADVANCED, STAT, read_interrupts},
    {"Total DPCs Queued/sec", COUNTER_RATE, DETAIL_EXPERT, STAT, read_soft_interrupts},
    {"Context Switches/sec", COUNTER_RATE, DETAIL_NOVICE, STAT, read_context_switches},
    {"System Up Time", COUNTER_SECONDS, DETAIL_NOVICE, UPTIME, read_uptime},
    // The processes that the agent can see: those of its own process namespace.
    {"Processes", COUNTER_LEVEL, DETAIL_NOVICE, PROCESSES, read_processes},
    // Of the whole host, whatever the agent can see.
    {"Threads", COUNTER_LEVEL, DETAIL_NOVICE, LOAD, read_threads},
    // Runnable threads beyond one for each processor, since the kernel's figure includes those that run.
    {"Processor Queue Length", COUNTER_LEVEL, DETAIL_NOVICE, STAT, read_queue_length},
};

// Shares of all time that the kernel has counted, which includes time taken away by a hypervisor. A processor
// that waits for a disk has nothing to run, and is idle.
static constexpr counter_row PROCESSOR_COUNTERS[] = {
    {"% Processor Time", COUNTER_PERCENT, DETAIL_NOVICE, STAT, read_share<busy_time>},
    // Programs, niced ones and guests of a virtual machine.
    {"% User Time", COUNTER_PERCENT, DETAIL_NOVICE, STAT, read_share<program_time>},
    // The kernel with its interrupts, hard and soft.
    {"% Privileged Time", COUNTER_PERCENT, DETAIL_NOVICE, STAT, read_share<kernel_time>},
    {"% Interrupt Time", COUNTER_PERCENT, DETAIL_ADVANCED, STAT, read_share<interrupt_time>},
    {"% DPC Time", COUNTER_PERCENT, DETAIL_EXPERT, STAT, read_share<soft_interrupt_time>},
    {"% Idle Time", COUNTER_PERCENT, DETAIL_ADVANCED, STAT, read_share<idle_time>},
    // Only the large table of all interrupts tells them by processor.
    {"Interrupts/sec", COUNTER_RATE, DETAIL_ADVANCED, INTERRUPTS, read_processor_interrupts, STAT,
     read_interrupts, has_processor_column},
};

static constexpr counter_row MEMORY_COUNTERS[] = {
    {"Available Bytes", COUNTER_LEVEL, DETAIL_NOVICE, MEMINFO, read_memory<available>},
    {"Available KBytes", COUNTER_LEVEL, DETAIL_NOVICE, MEMINFO, read_memory<available, 1024>},
    {"Available MBytes", COUNTER_LEVEL, DETAIL_NOVICE, MEMINFO, read_memory<available, 1024 * 1024>},
    {"Committed Bytes", COUNTER_LEVEL, DETAIL_NOVICE, MEMINFO, read_memory<committed>},
    // What may be committed where the kernel is told to hold to it; else it lets more pass.
    {"Commit Limit", COUNTER_LEVEL, DETAIL_NOVICE, MEMINFO, read_memory<commit_limit>},
    {"% Committed Bytes In Use", COUNTER_PART, DETAIL_NOVICE, MEMINFO, read_committed_part},
    // Pages of files.
    {"Cache Bytes", COUNTER_LEVEL, DETAIL_ADVANCED, MEMINFO, read_memory<cached>},
    // What the kernel has for itself and cannot give back.
    {"Pool Nonpaged Bytes", COUNTER_LEVEL, DETAIL_ADVANCED, MEMINFO, read_memory<kernel_memory>},
    // What it has for itself and would give back.
    {"Pool Paged Bytes", COUNTER_LEVEL, DETAIL_ADVANCED, MEMINFO, read_memory<kernel_caches>},
    {"Free & Zero Page List Bytes", COUNTER_LEVEL, DETAIL_EXPERT, MEMINFO, read_memory<unused>},
    // Of files; they wait to be written.
    {"Modified Page List Bytes", COUNTER_LEVEL, DETAIL_EXPERT, MEMINFO, read_memory<dirty>},
    // Those that needed no disk included.
    {"Page Faults/sec", COUNTER_RATE, DETAIL_NOVICE, VMSTAT, read_page_faults},
    // To and from swap. Reading a mapped file counts as reading a file.
    {"Pages/sec", COUNTER_RATE, DETAIL_NOVICE, VMSTAT, read_swapped_pages<true, true>},
    // Faults that had to wait for a disk, be it for swap or for a mapped file.
    {"Page Reads/sec", COUNTER_RATE, DETAIL_ADVANCED, VMSTAT, read_major_faults},
    {"Pages Input/sec", COUNTER_RATE, DETAIL_ADVANCED, VMSTAT, read_swapped_pages<true, false>},
    {"Pages Output/sec", COUNTER_RATE, DETAIL_ADVANCED, VMSTAT, read_swapped_pages<false, true>},
};

static constexpr counter_row PAGING_FILE_COUNTERS[] = {
    {"% Usage", COUNTER_PART, DETAIL_NOVICE, SWAPS, read_swap_use},
};

static constexpr counter_row OBJECTS_COUNTERS[] = {
    {"Processes", COUNTER_LEVEL, DETAIL_NOVICE, PROCESSES, read_processes},
    {"Threads", COUNTER_LEVEL, DETAIL_NOVICE, LOAD, read_threads},
};

const counter_object system_object = {.name = "System", .counters = SYSTEM_COUNTERS};
const counter_object processor_object = {.name = "Processor",
                                         .counters = PROCESSOR_COUNTERS,
                                         .instance_source = STAT,
                                         .list_instances = list_processors};
const counter_object memory_object = {.name = "Memory", .counters = MEMORY_COUNTERS};
const counter_object paging_file_object = {.name = "Paging File",
                                           .counters = PAGING_FILE_COUNTERS,
                                           .instance_source = SWAPS,
                                           .list_instances = list_swaps};
const counter_object objects_object = {.name = "Objects", .counters = OBJECTS_COUNTERS};
