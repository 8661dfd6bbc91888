// The devices by which the administrator's programs are offered.
#pragma once

#include "devtree/devtree.h"

struct custom_words {
    const char *name; // also the id
    uint32_t type;
    const char *unit; // absent where it is not set
    uint32_t description;
};

// Puts a new device with copies of the words and an empty comment at the head of the list. Out of memory is
// fatal. Words that are longer than the wire takes, which would keep all devices from the server, are told
// and left out.
void add_custom_device(devnode **list, const custom_words &words);

// Adds the devices to the top-level group of this id, which is made where it is missing and then owns them.
// They are freed where memory is out, which is told.
void offer_custom_devices(devtree *root, const char *id, const char *name, const char *name_template,
                          devnode *devices);
