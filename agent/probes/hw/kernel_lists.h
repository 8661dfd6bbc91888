// The disks and SCSI devices that a kernel lists in sysfs, from the names in its folders.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

inline constexpr size_t DISK_NAME_SIZE = 33;
inline constexpr size_t SYSFS_PATH_SIZE = 128;

// ---- names, one a line

// The names in a folder, sorted by their bytes.
struct name_list {
    uint32_t count;
    const char **names; // in `text`
    char *text;
};

// Of a text that the list then owns. Absent when memory is out.
name_list *parse_names(char *text);
void free_names(name_list *list); // takes absent

using name_list_guard = guard<name_list, free_names>;

// The names in a folder (its path ends in '/'), without any where it cannot be read. Absent when memory is
// out.
name_list *read_names(const char *folder);

// The first line of a small file without the blanks around it. False where it cannot be read.
bool read_word_file(const char *path, char *buffer, size_t size);

// ---- disks

// Whether a block device is a disk of its own by its name: no loop, memory or mapped one, no disc or
// diskette.
bool is_whole_disk_name(const char *name);

enum disk_kind { DISK_ATA, DISK_NVME, DISK_SCSI, DISK_OTHER };

// `vendor` is what a SCSI device tells of its vendor, which is "ATA" where the kernel or the adapter
// translates; `has_ata_page` whether it has the page of its inquiry that only translated drives have.
disk_kind kind_of_disk(const char *name, const char *vendor, bool has_ata_page);
// Words for one without ATA, absent for one with it.
const char *foreign_kind_words(disk_kind kind);

// ---- SCSI hosts and devices

struct scsi_address {
    uint32_t host;
    uint32_t channel;
    uint32_t target;
    uint64_t lun;
};

// "1:0:6:0".
bool parse_scsi_address(const char *name, scsi_address *out);
// A negative number where `a` comes before `b`, 0 for equal ones.
int compare_scsi_addresses(const scsi_address &a, const scsi_address &b);

// The lowest numbers of hosts ("host0", "host2", "host10" ...), in their order, as many as fit.
uint32_t lowest_hosts(const name_list *names, uint32_t *numbers, uint32_t room);
