// What the probes of the hardware find on a simulated host: nothing, unless a scenario says that there is one
// drive, one enclosure with a slot and a fan, and one RAID controller with a volume.
#pragma once

#include <cstdint>

struct sim_hardware {
    bool present = false;
    uint8_t drive_value = 100; // of an attribute whose threshold is 50
    uint8_t fan_status = 0;
    uint8_t volume_state = 0;
    int open_devices = 0;
};

struct raid_ops;
struct scsi_ops;
struct smart_ops;
extern const raid_ops sim_raid;
extern const scsi_ops sim_scsi;
extern const smart_ops sim_smart;
