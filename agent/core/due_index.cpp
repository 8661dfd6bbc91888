#include "core/due_index.h"

#include "core/schedule.h"
#include "platform/heap.h"

#include <utility>

namespace {

struct due_entry {
    devnode *device;
    uint32_t place; // in the walk
};

// A heap with the earliest at its top, and the log checks apart: their times are pulled forward at each look.
struct due_index {
    due_entry *heap;
    uint32_t heap_count;
    due_entry *logs;
    uint32_t log_count;
    devtree *tree; // walked instead where there was no memory
};

due_index due;

bool earlier(const due_entry &a, const due_entry &b) {
    if (a.device->next_check != b.device->next_check) return a.device->next_check < b.device->next_check;
    return a.place < b.place;
}

void sift_down(uint32_t at) {
    for (;;) {
        uint32_t least = at;
        for (uint32_t child = 2 * at + 1; child <= 2 * at + 2 && child < due.heap_count; child++)
            if (earlier(due.heap[child], due.heap[least])) least = child;
        if (least == at) return;
        std::swap(due.heap[at], due.heap[least]);
        at = least;
    }
}

void collect(devtree *group, uint32_t *place) {
    for (; group != nullptr; group = group->next) {
        for (devnode *device = group->devices; device != nullptr; device = device->next) {
            due_entry entry = {.device = device, .place = (*place)++};
            if (device->type == TYPE_ADV_LOG)
                due.logs[due.log_count++] = entry;
            else
                due.heap[due.heap_count++] = entry;
        }
        collect(group->children, place);
    }
}

const due_entry *earliest_log() {
    const due_entry *best = nullptr;
    for (uint32_t i = 0; i < due.log_count; i++) {
        pull_forward_for_silence(due.logs[i].device);
        if (best == nullptr || earlier(due.logs[i], *best)) best = &due.logs[i];
    }
    return best;
}

bool is_built() {
    return due.heap != nullptr && due.logs != nullptr;
}

// False when memory is out; the next look tries again.
bool build() {
    due_index_rebuild(due.tree);
    uint32_t count = devtree_count_checks(due.tree);
    due.heap = static_cast<due_entry *>(heap_alloc(count * sizeof(due_entry)));
    due.logs = static_cast<due_entry *>(heap_alloc(count * sizeof(due_entry)));
    if (!is_built()) return false;
    uint32_t place = 0;
    collect(due.tree, &place);
    for (uint32_t i = due.heap_count; i-- > 0;)
        sift_down(i);
    return true;
}

} // namespace

void due_index_rebuild(devtree *tree) {
    due_index_clear();
    due.tree = tree;
}

devnode *due_index_next() {
    if (!is_built() && !build()) return find_next_due(due.tree);
    if (due.heap_count > 0) sift_down(0); // the top is the one whose time may have changed
    const due_entry *log = earliest_log();
    if (due.heap_count == 0 || (log != nullptr && earlier(*log, due.heap[0])))
        return log != nullptr ? log->device : nullptr;
    return due.heap[0].device;
}

void due_index_clear() {
    heap_free(due.heap);
    heap_free(due.logs);
    due = {};
}
