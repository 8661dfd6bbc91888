// Disks as devices, and drives as the space on them.
#include "platform/text.h"
#include "probes/os/counter_objects.h"
#include "probes/os/diskstats.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_text.h"
#include "probes/os/perf_counter_ops.h"

#include <algorithm>
#include <array>
#include <iterator>

static constexpr const char *DISKS = "/proc/diskstats";
static constexpr const char *SPACE = "space:*";
static constexpr const char *DRIVES = "space:";
static constexpr uint64_t SECTOR = 512;

namespace {

struct counted_disks {
    disk_counts counts;
    uint64_t disks;
    uint64_t origin;
};

} // namespace

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

// Finds the counts of an instance, and of how many disks they are the sum.
using disk_finder = bool(const char *text, const char *instance, counted_disks *out);

static bool find_disks(const char *text, const char *instance, counted_disks *out) {
    return parse_disk_counts(text, instance, &out->counts, &out->disks);
}

// Another device may be mounted at the path by now.
static bool find_drive(const char *text, const char *path, counted_disks *out) {
    uint32_t major = 0;
    uint32_t minor = 0;
    if (!drives_host->drive_device(path, &major, &minor)) return false;
    out->disks = 1;
    out->origin = uint64_t{major} << 32 | minor;
    return find_device_counts(text, major, minor, &out->counts);
}

template <disk_finder Find>
static bool has_disk(const char *text, const char *instance) {
    counted_disks found = {};
    return Find(text, instance, &found);
}

// Queues and rates of all disks together.
template <disk_finder Find, disk_figure Value>
static bool read_disk(const char *text, const char *instance, counter_sample *out) {
    counted_disks found = {};
    if (!Find(text, instance, &found)) return false;
    *out = {.value = Value(found.counts), .base = 1, .origin = found.origin};
    return true;
}

// Shares of time: of all disks their mean.
template <disk_finder Find, disk_figure Value>
static bool read_disk_share(const char *text, const char *instance, counter_sample *out) {
    counted_disks found = {};
    if (!Find(text, instance, &found)) return false;
    *out = {.value = Value(found.counts), .base = found.disks, .origin = found.origin};
    return true;
}

template <disk_finder Find, disk_figure Value, disk_figure Base>
static bool read_disk_average(const char *text, const char *instance, counter_sample *out) {
    counted_disks found = {};
    if (!Find(text, instance, &found)) return false;
    *out = {.value = Value(found.counts), .base = Base(found.counts), .origin = found.origin};
    return true;
}

template <disk_finder Find>
static constexpr counter_row row(const char *name, counter_type type, uint32_t detail, sample_reader *read) {
    return {.name = name,
            .type = type,
            .detail = detail,
            .source = DISKS,
            .read = read,
            .is_there = has_disk<Find>};
}

// The kernel counts what it has finished; a read or write that waits is in the queues alone.
template <disk_finder Find>
static constexpr counter_row DISK_ROWS[] = {
    row<Find>("% Disk Time", COUNTER_TIME_SHARE, DETAIL_NOVICE, read_disk_share<Find, transfer_time>),
    row<Find>("% Disk Read Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED, read_disk_share<Find, read_time>),
    row<Find>("% Disk Write Time", COUNTER_TIME_SHARE, DETAIL_ADVANCED, read_disk_share<Find, write_time>),
    row<Find>("% Idle Time", COUNTER_IDLE_SHARE, DETAIL_ADVANCED, read_disk_share<Find, busy_time>),
    row<Find>("Avg. Disk Queue Length", COUNTER_QUEUE, DETAIL_NOVICE, read_disk<Find, weighted_time>),
    row<Find>("Avg. Disk Read Queue Length", COUNTER_QUEUE, DETAIL_ADVANCED, read_disk<Find, read_time>),
    row<Find>("Avg. Disk Write Queue Length", COUNTER_QUEUE, DETAIL_ADVANCED, read_disk<Find, write_time>),
    row<Find>("Current Disk Queue Length", COUNTER_LEVEL, DETAIL_NOVICE, read_disk<Find, in_flight>),
    row<Find>("Avg. Disk sec/Transfer", COUNTER_AVERAGE_TIME, DETAIL_NOVICE,
              read_disk_average<Find, transfer_time, transfers>),
    row<Find>("Avg. Disk sec/Read", COUNTER_AVERAGE_TIME, DETAIL_ADVANCED,
              read_disk_average<Find, read_time, reads>),
    row<Find>("Avg. Disk sec/Write", COUNTER_AVERAGE_TIME, DETAIL_ADVANCED,
              read_disk_average<Find, write_time, writes>),
    row<Find>("Disk Transfers/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, transfers>),
    row<Find>("Disk Reads/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, reads>),
    row<Find>("Disk Writes/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, writes>),
    row<Find>("Disk Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, all_bytes>),
    row<Find>("Disk Read Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, read_bytes>),
    row<Find>("Disk Write Bytes/sec", COUNTER_RATE, DETAIL_NOVICE, read_disk<Find, written_bytes>),
    row<Find>("Avg. Disk Bytes/Transfer", COUNTER_AVERAGE, DETAIL_EXPERT,
              read_disk_average<Find, all_bytes, transfers>),
    row<Find>("Avg. Disk Bytes/Read", COUNTER_AVERAGE, DETAIL_EXPERT,
              read_disk_average<Find, read_bytes, reads>),
    row<Find>("Avg. Disk Bytes/Write", COUNTER_AVERAGE, DETAIL_EXPERT,
              read_disk_average<Find, written_bytes, writes>),
    // The kernel counts no splits. It counts how often it joined requests that belong together, which is as
    // often as something had come in more pieces than needed.
    row<Find>("Split IO/Sec", COUNTER_RATE, DETAIL_EXPERT, read_disk<Find, merged>),
};

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

const counter_object physical_disk_object = {.name = "PhysicalDisk",
                                             .counters = DISK_ROWS<find_disks>,
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
static constexpr counter_row SPACE_ROWS[] = {
    {"% Free Space", COUNTER_PART, DETAIL_NOVICE, SPACE, read_free_part},
    {"Free Megabytes", COUNTER_LEVEL, DETAIL_NOVICE, SPACE, read_free_megabytes},
};

static constexpr size_t SPACE_COUNT = std::size(SPACE_ROWS);
static constexpr size_t DISK_COUNT = std::size(DISK_ROWS<find_drive>);

static constexpr std::array<counter_row, SPACE_COUNT + DISK_COUNT> join_drive_rows() {
    std::array<counter_row, SPACE_COUNT + DISK_COUNT> rows = {};
    std::copy_n(SPACE_ROWS, SPACE_COUNT, rows.begin());
    std::copy_n(DISK_ROWS<find_drive>, DISK_COUNT, rows.begin() + SPACE_COUNT);
    return rows;
}

// Only a drive with a block device of its own has counters of a disk: a partition, a volume, an image. What
// several devices hold together, and the root of a container, have their space alone.
static constexpr std::array DRIVE_COUNTERS = join_drive_rows();

const counter_object logical_disk_object = {.name = "LogicalDisk",
                                            .counters = DRIVE_COUNTERS,
                                            .instance_source = DRIVES,
                                            .list_instances = list_drives};
