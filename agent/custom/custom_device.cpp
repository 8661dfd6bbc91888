#include "custom/custom_device.h"

#include "platform/agent_log.h"
#include "platform/fatal.h"
#include "platform/text.h"

#include <cstring>

static char *copy_word(const char *word) {
    char *copy = text_copy(word);
    if (copy == nullptr && word != nullptr) fatal("alloc_devnode() ran out of memory!");
    return copy;
}

static bool fits(const char *word) {
    return word == nullptr || strlen(word) <= NAME_LIMIT;
}

void add_custom_device(devnode **list, const custom_words &words) {
    if (!fits(words.name) || !fits(words.unit)) {
        agent_log(LOG_WARNING, "\"%s\" is not offered: its name or unit has more than 128 characters",
                  words.name);
        return;
    }
    devnode_guard device(alloc_devnode());
    device->id = copy_word(words.name);
    device->name = copy_word(words.name);
    device->comment = copy_word("");
    device->type = words.type;
    device->unit = copy_word(words.unit);
    device->description = words.description;
    device->next = *list;
    *list = device.release();
}

void offer_custom_devices(devtree *root, const char *id, const char *name, const char *name_template,
                          devnode *devices) {
    devtree *group = devtree_child(root, id, name);
    if (group == nullptr) {
        free_devnode_list(devices);
        agent_log(LOG_ERROR, "Couldn't allocate devtree_child mem");
        return;
    }
    group->name_template = name_template;
    devtree_add_devices(group, devices);
}
