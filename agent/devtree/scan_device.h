// The device that a scan offers, from the words that tell it on the wire.
#pragma once

#include "devtree/devtree.h"

struct scan_words {
    const char *id;
    const char *name; // absent where it is not set
    const char *comment;
    uint32_t type;
    const char *unit; // absent where it is not set
    uint32_t description;
};

// A new device with copies of the words. Out of memory is fatal.
devnode *new_scan_device(const scan_words &words);

// Sets the range hint of a scanned device.
void set_range_hint(devnode *device, double min, double value, double max);

// Puts a device at the head of a list.
void put_in_front(devnode **list, devnode *device);

// Adds the devices, which the group then owns, to the group of this id, which is made where it is missing.
// The devices are freed where memory is out. The template is a literal; absent leaves the group's as it is.
[[nodiscard]] const char *offer_devices(devtree *root, const char *id, const char *name,
                                        const char *name_template, uint32_t flags, devnode *devices);
