#include "probes/os/diskstats.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

static constexpr size_t COUNTS = 11;

// In the order of the line.
static void point_at_counts(disk_counts *counts, uint64_t *(&out)[COUNTS]) {
    uint64_t *const all[COUNTS] = {&counts->reads,           &counts->reads_merged, &counts->read_sectors,
                                   &counts->read_ms,         &counts->writes,       &counts->writes_merged,
                                   &counts->written_sectors, &counts->write_ms,     &counts->in_flight,
                                   &counts->busy_ms,         &counts->weighted_ms};
    memcpy(out, all, sizeof all);
}

static bool read_device_number(const char **at, uint32_t *out) {
    uint64_t number = 0;
    if (!read_number(at, &number) || number > 0xFFFFF) return false;
    *out = static_cast<uint32_t>(number);
    return true;
}

// Lines with fewer numbers are those of partitions in old kernels; what newer ones count beyond is not read.
static bool read_disk_line(const char *at, disk_line *out) {
    *out = {};
    if (!read_device_number(&at, &out->major) || !read_device_number(&at, &out->minor)) return false;
    at += strspn(at, " ");
    size_t length = strcspn(at, " \n");
    if (length == 0 || length >= sizeof out->name) return false;
    copy_bounded(out->name, at, length + 1);
    at += length;
    uint64_t *counts[COUNTS];
    point_at_counts(&out->counts, counts);
    for (uint64_t *count : counts)
        if (!read_number(&at, count)) return false;
    return true;
}

bool next_disk_line(const char **at, disk_line *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (read_disk_line(line, out)) return true;
    }
    return false;
}

bool find_device_counts(const char *diskstats, uint32_t major, uint32_t minor, disk_counts *out) {
    for (const char *behind = nullptr; (behind = next_line(diskstats)) != nullptr; diskstats = behind) {
        const char *at = diskstats;
        uint32_t line_major = 0;
        uint32_t line_minor = 0;
        if (!read_device_number(&at, &line_major) || !read_device_number(&at, &line_minor)) continue;
        disk_line line;
        if (line_major != major || line_minor != minor || !read_disk_line(diskstats, &line)) continue;
        *out = line.counts;
        return true;
    }
    return false;
}

uint32_t disk_number(uint32_t major, uint32_t minor) {
    return (minor & 0xFF) | (major & 0xFFF) << 8 | (minor & 0xFFF00) << 12;
}

static bool is_made_of_others(const char *name) {
    for (const char *kind : {"loop", "ram", "zram", "dm-"}) {
        if (!text_starts_with(name, kind)) continue;
        const char *number = name + strlen(kind);
        if (*number != '\0' && strspn(number, "0123456789") == strlen(number)) return true;
    }
    return false;
}

// A name stands between blanks, as nothing else does that has a letter in it. To read the lines for it, once
// for each partition, took a second where there are thousands, and that for each look at the disks.
static bool has_device(const char *diskstats, const char *name, size_t length) {
    char word[DISK_NAME_SIZE + 2];
    snprintf(word, sizeof word, " %.*s ", static_cast<int>(length), name);
    return strstr(diskstats, word) != nullptr;
}

// The kernel names partition 3 of "sda" "sda3", and of a disk that ends in a digit, as "nvme0n1",
// "nvme0n1p3". What looks so without such a disk is one itself.
static bool is_partition(const char *diskstats, const char *name) {
    size_t length = strlen(name);
    while (length > 0 && name[length - 1] >= '0' && name[length - 1] <= '9')
        length--;
    if (length == 0 || name[length] == '\0') return false;
    bool behind_digit =
        length > 1 && name[length - 1] == 'p' && name[length - 2] >= '0' && name[length - 2] <= '9';
    return has_device(diskstats, name, behind_digit ? length - 1 : length);
}

bool is_whole_disk(const char *diskstats, const disk_line &line) {
    return !is_made_of_others(line.name) && !is_partition(diskstats, line.name);
}

void print_disk_instance(const disk_line &line, char *buffer, size_t size) {
    snprintf(buffer, size, "%u %s", disk_number(line.major, line.minor), line.name);
}

static void add_counts(disk_counts *sum, disk_counts *more) {
    uint64_t *sums[COUNTS];
    uint64_t *counts[COUNTS];
    point_at_counts(sum, sums);
    point_at_counts(more, counts);
    for (size_t i = 0; i < COUNTS; i++)
        *sums[i] += *counts[i];
}

static bool sum_disks(const char *diskstats, disk_counts *out, uint64_t *out_disks) {
    disk_line line;
    *out = {};
    *out_disks = 0;
    for (const char *at = diskstats; next_disk_line(&at, &line);) {
        if (!is_whole_disk(diskstats, line)) continue;
        add_counts(out, &line.counts);
        ++*out_disks;
    }
    return *out_disks > 0;
}

bool parse_disk_counts(const char *diskstats, const char *instance, disk_counts *out, uint64_t *out_disks) {
    if (text_equal(instance, ALL_DISKS)) return sum_disks(diskstats, out, out_disks);
    disk_line line;
    for (const char *at = diskstats; next_disk_line(&at, &line);) {
        char name[DISK_NAME_SIZE + 16];
        print_disk_instance(line, name, sizeof name);
        if (!text_equal(name, instance)) continue;
        *out = line.counts;
        *out_disks = 1;
        return true;
    }
    return false;
}
