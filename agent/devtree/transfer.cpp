#include "devtree/transfer.h"

#include "platform/text.h"

static devtree *find_group(devtree *list, const char *id) {
    while (list != nullptr && !text_equal(list->id, id))
        list = list->next;
    return list;
}

static devnode *find_device(devnode *list, const char *id) {
    while (list != nullptr && !text_equal(list->id, id))
        list = list->next;
    return list;
}

static void move_results(devnode *from, devnode *to) {
    to->results = from->results;
    to->results_tail = from->results != nullptr ? from->results_tail : &to->results;
    from->results = nullptr;
    from->results_tail = &from->results;
}

static void move_state(devnode *from, devnode *to) {
    to->state = from->state;
    to->state_free = from->state_free;
    to->state_magic = from->state_magic;
    clear_state(from);
}

static void transfer_devices(devtree *from, devtree *to) {
    for (devnode *device = to->devices; device != nullptr; device = device->next) {
        devnode *old = find_device(from->devices, device->id);
        if (old == nullptr) continue;
        move_results(old, device);
        move_state(old, device);
    }
}

void transfer_state(devtree *old_list, devtree *new_list) {
    for (; new_list != nullptr; new_list = new_list->next) {
        devtree *old = find_group(old_list, new_list->id);
        if (old == nullptr) continue;
        transfer_devices(old, new_list);
        transfer_state(old->children, new_list->children);
    }
}

bool action_is_delivered(const devnode *device) {
    return device->next_check != 0 && device->results == nullptr;
}

static void prune_devices(devtree *group) {
    for (devnode **link = &group->devices; *link != nullptr;) {
        devnode *device = *link;
        if (device->next_check == 0) {
            link = &device->next;
            continue;
        }
        *link = device->next;
        free_devnode(device);
    }
}

void prune_ran_actions(devtree **link, prune_test test) {
    while (devtree *group = *link) {
        prune_devices(group);
        prune_ran_actions(&group->children, test);
        if (group->devices != nullptr || group->children != nullptr) {
            link = &group->next;
            continue;
        }
        *link = group->next;
        group->next = nullptr;
        free_devtree(group);
    }
}
