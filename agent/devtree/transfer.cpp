#include "devtree/transfer.h"

#include "platform/text.h"

namespace {

// Finds the first record of an id in a list of groups or devices. A long list gets an index for it, so that
// carrying over ten thousand checks does not take fifty million comparisons.
template <class T>
class first_by_id {
public:
    explicit first_by_id(T *list) : list_(list) {
        size_t count = 0;
        for (T *record = list; record != nullptr; record = record->next)
            count++;
        if (count >= INDEX_FROM) build(count);
    }
    ~first_by_id() { heap_free(slots_); }
    first_by_id(const first_by_id &) = delete;
    first_by_id &operator=(const first_by_id &) = delete;

    T *find(const char *id) const {
        if (slots_ != nullptr) return *slot_of(id);
        T *record = list_;
        while (record != nullptr && !text_equal(record->id, id))
            record = record->next;
        return record;
    }

private:
    static constexpr size_t INDEX_FROM = 16; // records

    // The search goes on without an index where memory is out.
    void build(size_t count) {
        size_t size = 2;
        while (size < 2 * count)
            size *= 2;
        slots_ = static_cast<T **>(heap_alloc(size * sizeof(T *)));
        if (slots_ == nullptr) return;
        mask_ = size - 1;
        for (T *record = list_; record != nullptr; record = record->next)
            if (T **slot = slot_of(record->id); *slot == nullptr) *slot = record;
    }

    // The slot of this id, or the empty one where it belongs.
    T **slot_of(const char *id) const {
        size_t slot = text_hash(id) & mask_;
        while (slots_[slot] != nullptr && !text_equal(slots_[slot]->id, id))
            slot = (slot + 1) & mask_;
        return &slots_[slot];
    }

    T *list_;
    T **slots_ = nullptr;
    size_t mask_ = 0;
};

} // namespace

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
    first_by_id<devnode> old_devices(from->devices);
    for (devnode *device = to->devices; device != nullptr; device = device->next) {
        devnode *old = old_devices.find(device->id);
        if (old == nullptr) continue;
        move_results(old, device);
        move_state(old, device);
    }
}

void transfer_state(devtree *old_list, devtree *new_list) {
    first_by_id<devtree> old_groups(old_list);
    for (; new_list != nullptr; new_list = new_list->next) {
        devtree *old = old_groups.find(new_list->id);
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
