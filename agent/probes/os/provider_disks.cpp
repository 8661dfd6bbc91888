// Disks as devices, and drives as the space on them.
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/diskstats.h"
#include "probes/os/host_text.h"
#include "probes/os/perf_counter_ops.h"

#include <algorithm>

static constexpr const char *DISKS = "/proc/diskstats";
static constexpr const char *SPACE = "space:*";
static constexpr const char *DRIVES = "space:";
static constexpr uint64_t SECTOR = 512;

using disk_figure = uint64_t(const disk_counts &counts);

static uint64_t reads(const disk_counts &counts) {
    return counts.reads;
}

static uint64_t writes(const disk_counts &counts) {
    return counts.writes;
}

static uint64_t transfers(const disk_counts &counts) {
    return counts.reads + counts.writes;
}

static uint64_t read_bytes(const disk_counts &counts) {
    return counts.read_sectors * SECTOR;
}

static uint64_t written_bytes(const disk_counts &counts) {
    return counts.written_sectors * SECTOR;
}

static uint64_t all_bytes(const disk_counts &counts) {
    return (counts.read_sectors + counts.written_sectors) * SECTOR;
}

static uint64_t read_time(const disk_counts &counts) {
    return counts.read_ms;
}

static uint64_t write_time(const disk_counts &counts) {
    return counts.write_ms;
}

static uint64_t transfer_time(const disk_counts &counts) {
    return counts.read_ms + counts.write_ms;
}

static uint64_t busy_time(const disk_counts &counts) {
    return counts.busy_ms;
}

static uint64_t weighted_time(const disk_counts &counts) {
    return counts.weighted_ms;
}

static uint64_t in_flight(const disk_counts &counts) {
    return counts.in_flight;
}

static uint64_t merged(const disk_counts &counts) {
    return counts.reads_merged + counts.writes_merged;
}

// Queues and rates of all disks together.
template <disk_figure Value>
static bool read_disk(const char *text, const char *instance, counter_sample *out) {
    disk_counts counts;
    uint64_t disks = 0;
    if (!parse_disk_counts(text, instance, &counts, &disks)) return false;
    *out = {.value = Value(counts), .base = 1};
    return true;
}

// Shares of time: of all disks their mean.
template <disk_figure Value>
static bool read_disk_share(const char *text, const char *instance, counter_sample *out) {
    disk_counts counts;
    if (!parse_disk_counts(text, instance, &counts, &out->base)) return false;
    out->value = Value(counts);
    return true;
}

template <disk_figure Value, disk_figure Base>
static bool read_disk_average(const char *text, const char *instance, counter_sample *out) {
    disk_counts counts;
    uint64_t disks = 0;
    if (!parse_disk_counts(text, instance, &counts, &disks)) return false;
    *out = {.value = Value(counts), .base = Base(counts)};
    return true;
}

static void list_disks(const char *text, instance_visitor *visit, void *context) {
    disk_line line;
    bool more = true;
    uint32_t disks = 0;
    for (const char *at = text; more && next_disk_line(&at, &line);) {
        if (!is_whole_disk(text, line)) continue;
        char name[DISK_NAME_SIZE + 16];
        print_disk_instance(line, name, sizeof name);
        more = visit(context, name, nullptr);
        disks++;
    }
    if (more && disks > 0) visit(context, TOTAL_INSTANCE, nullptr);
}

// The kernel counts what it has finished; a read or write that waits is in the queues alone.
static constexpr counter_row DISK_COUNTERS[] = {
    {"% Disk Time", COUNTER_TIME_SHARE, DETAIL_NOVICE, DISKS, read_disk_share<transfer_time>},
    {"% Disk Read Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED, DISKS, read_disk_share<read_time>},
    {"% Disk Write Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED, DISKS, read_disk_share<write_time>},
    {"% Idle Time", COUNTER_IDLE_SHARE, DETAIL_ADVANCED, DISKS, read_disk_share<busy_time>},
    {"Avg. Disk Queue Length", COUNTER_QUEUE, DETAIL_NOVICE, DISKS, read_disk<weighted_time>},
    {"Avg. Disk Read Queue Length", COUNTER_QUEUE, DETAIL_ADVANCED, DISKS, read_disk<read_time>},
    {"Avg. Disk Write Queue Length", COUNTER_QUEUE, DETAIL_ADVANCED, DISKS, read_disk<write_time>},
    {"Current Disk Queue Length", COUNTER_LEVEL, DETAIL_NOVICE, DISKS, read_disk<in_flight>},
    {"Avg. Disk sec/Transfer", COUNTER_AVERAGE_TIME, DETAIL_NOVICE, DISKS,
     read_disk_average<transfer_time, transfers>},
    {"Avg. Disk sec/Read", COUNTER_AVERAGE_TIME, DETAIL_ADVANCED, DISKS, read_disk_average<read_time, reads>},
    {"Avg. Disk sec/Write", COUNTER_AVERAGE_TIME, DETAIL_ADVANCED, DISKS,
     read_disk_average<write_time, writes>},
    {"Disk Transfers/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<transfers>},
    {"Disk Reads/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<reads>},
    {"Disk Writes/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<writes>},
    {"Disk Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<all_bytes>},
    {"Disk Read Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<read_bytes>},
    {"Disk Write Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, DISKS, read_disk<written_bytes>},
    {"Avg. Disk Bytes/Transfer", COUNTER_AVERAGE, DETAIL_EXPERT, DISKS,
     read_disk_average<all_bytes, transfers>},
    {"Avg. Disk Bytes/Read", COUNTER_AVERAGE, DETAIL_EXPERT, DISKS, read_disk_average<read_bytes, reads>},
    {"Avg. Disk Bytes/Write", COUNTER_AVERAGE, DETAIL_EXPERT, DISKS,
     read_disk_average<written_bytes, writes>},
    // The kernel counts no splits. It counts how often it joined requests that belong together, which is as
    // often as something had come in more pieces than needed.
    {"Split IO/Sec", COUNTER_RATE, DETAIL_EXPERT, DISKS, read_disk<merged>},
};

const counter_object physical_disk_object = {.name = "PhysicalDisk",
                                             .counters = DISK_COUNTERS,
                                             .instance_source = DISKS,
                                             .list_instances = list_disks};

static bool read_space(const char *text, uint64_t *out_free, uint64_t *out_total) {
    return read_number(&text, out_free) && read_number(&text, out_total) && *text == '\n';
}

static bool read_free_part(const char *text, const char *, counter_sample *out) {
    if (!read_space(text, &out->value, &out->base)) return false;
    out->value = std::min(out->value, out->base);
    return true;
}

static bool read_free_megabytes(const char *text, const char *, counter_sample *out) {
    uint64_t total = 0;
    out->base = uint64_t{1} << 20;
    return read_space(text, &out->value, &total);
}

static void list_drives(const char *text, instance_visitor *visit, void *context) {
    bool more = true;
    for (const char *behind = nullptr; more && (behind = next_line(text)) != nullptr; text = behind) {
        char path[INSTANCE_NAME_SIZE];
        auto length = static_cast<size_t>(behind - text);
        if (length > sizeof path) continue;
        copy_bounded(path, text, length);
        more = visit(context, path, nullptr);
    }
}

// What is left for others than root may be less.
static constexpr counter_row DRIVE_COUNTERS[] = {
    {"% Free Space", COUNTER_PART, DETAIL_NOVICE, SPACE, read_free_part},
    {"Free Megabytes", COUNTER_LEVEL, DETAIL_NOVICE, SPACE, read_free_megabytes},
};

const counter_object logical_disk_object = {.name = "LogicalDisk",
                                            .counters = DRIVE_COUNTERS,
                                            .instance_source = DRIVES,
                                            .list_instances = list_drives};
