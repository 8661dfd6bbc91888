#include "devtree/scan_device.h"

#include "platform/fatal.h"
#include "platform/text.h"

static char *copy_word(const char *word) {
    char *copy = text_copy(word);
    if (copy == nullptr && word != nullptr) fatal("alloc_devnode() ran out of memory!");
    return copy;
}

devnode *new_scan_device(const scan_words &words) {
    devnode_guard device(alloc_devnode());
    device->id = copy_word(words.id);
    device->name = copy_word(words.name);
    device->comment = copy_word(words.comment);
    device->type = words.type;
    device->unit = copy_word(words.unit);
    device->description = words.description;
    return device.release();
}

void set_range_hint(devnode *device, double min, double value, double max) {
    device->limits.hint = {.hint_present = 1, .hint_min = min, .hint_value = value, .hint_max = max};
}

void put_in_front(devnode **list, devnode *device) {
    device->next = *list;
    *list = device;
}

const char *offer_devices(devtree *root, const char *id, const char *name, const char *name_template,
                          uint32_t flags, devnode *devices) {
    devtree *group = devtree_child(root, id, name);
    if (group == nullptr) {
        free_devnode_list(devices);
        return "Couldn't allocate devtree_child mem";
    }
    if (name_template != nullptr) group->name_template = name_template;
    group->group_flags |= flags;
    devtree_add_devices(group, devices);
    return nullptr;
}
