// The state of logical volumes on RAID controllers, asked of the controller's driver.
//
// A scan opens every adapter once and keeps those open that answer; a controller's number is its place in the
// array, which lives until the next scan. A check finds its controller and its volume by the numbers in the
// ids, so it relies on them being the same as in the scan that offered it.
//
// Two families of requests are provided for. CSMI is turned off: each attempt ends with the reason
// "disabled".
#pragma once

#include "devtree/devtree.h"
#include "probes/hw/raid_ops.h"

enum : uint32_t { CONTROLLER_LEGACY_CISS = 1, CONTROLLER_CSMI = 2 };

inline constexpr uint32_t RAID_PORTS = 255;

struct raid_controller {
    raid_adapter *handle;
    char name[129]; // the path of its device
    uint32_t type;
};

// As many as there are ports, so that the array needs no memory of its own.
extern raid_controller raid_controllers[RAID_PORTS];
extern uint32_t raid_controller_count;

const char *scan_raid(devtree *root);
const char *check_raid(devnode *device, resnode *result);

// The steps of a scan: closes what the one before has left, fills the array, offers one controller's volumes.
void close_controllers();
void find_controllers();
[[nodiscard]] const char *scan_volumes(devtree *root, uint32_t number);
// Offers one volume, with the status check that its controller's type has.
[[nodiscard]] const char *offer_volume(devtree *root, uint32_t number, uint32_t volume);
