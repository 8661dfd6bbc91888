// The devices behind the host's SCSI adapters that no class driver has claimed, and commands to one of them.
//
// A walk goes through the ports from 0 on, through the buses of each and through the entries of each bus. The
// first port that is not there ends it, and the port behind 255 is not there, since names have no place for
// it.
//
// The adapter's own table leads the walk, and a table in which entries lead in a circle or out of it would
// lead it without end: this is the one departure from following it as it stands. An entry that overlaps one
// that was seen before, or does not lie in the table, ends its bus. That is said once a walk, at level 2.
#pragma once

#include "platform/heap.h"
#include "probes/hw/scsi_layout.h"
#include "probes/hw/scsi_ops.h"

#include <cstdint>

// "scsi255:FF:FF:FF" is the longest name.
inline constexpr uint32_t SCSI_NAME_SIZE = 21;

// The state of a walk over all devices.
struct scsi_scan {
    char name[SCSI_NAME_SIZE]; // of the current device
    uint8_t port;
    uint8_t bus;
    scsi_adapter *handle; // absent where none is open
    uint32_t offset;      // of the current device's entry in `inquiry`, 0 at the end of a bus
    bool done;            // there is no such port: the walk is over
    uint8_t inquiry[INQUIRY_TABLE_SIZE];
    uint32_t inquiry_size;                // bytes of it that the adapter has filled
    uint8_t seen[INQUIRY_TABLE_SIZE / 8]; // a bit for each byte that was part of an entry
    bool told_unsound;
};

// One open device.
struct scsi_dev {
    uint8_t port;
    uint8_t path;
    uint8_t target;
    uint8_t lun;
    scsi_adapter *handle;
};

// The name of the first device, or absent. The walk must be ended in either case.
const char *find_first_scsi_dev(scsi_scan **out);
const char *find_next_scsi_dev(scsi_scan *scan);
void end_scsi_scan(scsi_scan *scan); // takes absent

// Opens the device of this name, as a walk has given it.
[[nodiscard]] const char *open_scsi_dev(scsi_dev **out, const char *name);
void close_scsi_dev(scsi_dev *device); // takes absent

// Sends a command block of at most 16 bytes and waits for `in_length` bytes of answer in `buffer`; no data
// can go out. A second attempt follows a failed one after a second.
[[nodiscard]] const char *gen_scsi_cmd(scsi_dev *device, const uint8_t *cdb, uint32_t cdb_length,
                                       uint32_t out_length, uint8_t *buffer, uint32_t in_length);

using scsi_scan_guard = guard<scsi_scan, end_scsi_scan>;
using scsi_dev_guard = guard<scsi_dev, close_scsi_dev>;
