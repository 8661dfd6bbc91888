// Trees for tests of their room.
#pragma once

#include "devtree/devtree.h"
#include "platform/text.h"

#include <string>
#include <utility>
#include <vector>

// A group without a parent, as in a tree from the server.
inline devtree *top_group(const char *id) {
    devtree *group = heap_new<devtree>();
    group->id = text_copy(id);
    return group;
}

// Appends a sibling behind the last one.
inline devtree *sibling_of(devtree *first, const char *id) {
    while (first->next != nullptr)
        first = first->next;
    return first->next = top_group(id);
}

// A device with this id as the last one of the group.
inline devnode *add_device(devtree *group, const char *id, uint32_t type = TYPE_CONTINUOUS) {
    devnode *device = alloc_devnode();
    device->id = text_copy(id);
    device->type = type;
    device->frequency = 60;
    device->parent = group;
    device->limits.continuous = {-1, -1, -1, -1};
    devnode **link = &group->devices;
    while (*link != nullptr)
        link = &(*link)->next;
    return *link = device;
}

inline resnode *add_result(devnode *device, int64_t check_time, int32_t value = 0) {
    resnode *result = alloc_resnode();
    result->check_time = check_time;
    result->value = value;
    append_result(device, result);
    return result;
}

// The values of the queue, as "1 2 3".
inline std::string queue_of(const devnode *device) {
    std::string all;
    for (const resnode *result = device->results; result != nullptr; result = result->next)
        all += (all.empty() ? "" : " ") + std::to_string(result->value);
    return all;
}

// The groups with their devices and children, as "a[x y](b[z])".
inline std::string shape_of(const devtree *group) {
    std::string all;
    for (; group != nullptr; group = group->next) {
        std::string devices;
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            devices += (devices.empty() ? "" : " ") + std::string(device->id);
        all +=
            (all.empty() ? "" : " ") + std::string(group->id) + (devices.empty() ? "" : "[" + devices + "]");
        if (group->children != nullptr) all += "(" + shape_of(group->children) + ")";
    }
    return all;
}

inline constexpr uint32_t TEST_MAGIC = 4242;
inline int freed_states;

inline void free_test_state(devnode *device) {
    freed_states += device->state_magic == TEST_MAGIC ? 1 : 1000;
    heap_free(device->state);
}

inline void place_test_state(devnode *device) {
    device->state = heap_alloc(16);
    device->state_magic = TEST_MAGIC;
    device->state_free = free_test_state;
}
