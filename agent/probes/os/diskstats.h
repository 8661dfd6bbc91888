// What the kernel counts for its block devices: /proc/diskstats.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t DISK_NAME_SIZE = 64;

// Sectors have 512 bytes, whatever the device's own are. Times are milliseconds.
struct disk_counts {
    uint64_t reads, reads_merged, read_sectors, read_ms;
    uint64_t writes, writes_merged, written_sectors, write_ms;
    uint64_t in_flight;   // now
    uint64_t busy_ms;     // with anything in flight
    uint64_t weighted_ms; // summed over all that was in flight
};

struct disk_line {
    uint32_t major, minor;
    char name[DISK_NAME_SIZE];
    disk_counts counts;
};

// The next sound line at or behind `*at`, which then moves behind it; false behind the last one. `*at` starts
// at the head of the text.
bool next_disk_line(const char **at, disk_line *out);

// The counts of a device by its number, whatever it is made of.
bool find_device_counts(const char *diskstats, uint32_t major, uint32_t minor, disk_counts *out);

// The number of a device as programs know it: its major and minor in one.
uint32_t disk_number(uint32_t major, uint32_t minor);

// Whether the device is a disk of the host: no partition, and none that is made of memory, a file or other
// devices.
bool is_whole_disk(const char *diskstats, const disk_line &line);

// The counts of a whole disk by its instance name, "NUMBER NAME"; of all of them for ALL_DISKS, with their
// number.
bool parse_disk_counts(const char *diskstats, const char *instance, disk_counts *out, uint64_t *out_disks);

// Writes the instance name of a disk.
void print_disk_instance(const disk_line &line, char *buffer, size_t size);

inline constexpr const char *ALL_DISKS = "_Total";
