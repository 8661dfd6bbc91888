#include "custom/custom_device.h"

#include "platform/agent_log.h"
#include "platform/fatal.h"
#include "platform/text.h"

static char *copy_word(const char *word) {
    char *copy = text_copy(word);
    if (copy == nullptr && word != nullptr) fatal("alloc_devnode() ran out of memory!");
    return copy;
}

devnode *new_custom_device(const custom_words &words) {
    devnode_guard device(alloc_devnode());
    device->id = copy_word(words.name);
    device->name = copy_word(words.name);
    device->comment = copy_word("");
    device->type = words.type;
    device->unit = copy_word(words.unit);
    device->description = words.description;
    return device.release();
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
