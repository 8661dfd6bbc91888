#include "devtree/devtree.h"

#include "logcheck/clause.h"
#include "platform/fatal.h"
#include "platform/text.h"

template <class T>
static T *alloc_record(const char *out_of_memory) {
    T *record = heap_new<T>();
    if (record == nullptr) fatal(out_of_memory);
    return record;
}

devnode *alloc_devnode() {
    auto *device = alloc_record<devnode>("alloc_devnode() ran out of memory!");
    device->results_tail = &device->results;
    clear_state(device);
    return device;
}

logrule *alloc_logrule() {
    return alloc_record<logrule>("alloc_logrule() ran out of memory!");
}

lognode *alloc_lognode() {
    return alloc_record<lognode>("alloc_lognode() ran out of memory!");
}

resnode *alloc_resnode() {
    return alloc_record<resnode>("alloc_resnode() ran out of memory!");
}

clinfo *alloc_clinfo() {
    return alloc_record<clinfo>("alloc_clinfo() ran out of memory!");
}

void free_resnode(resnode *result) {
    if (result == nullptr) return;
    heap_free(result->comment);
    heap_free(result->log_text);
    heap_free(result);
}

static void free_results(devnode *device) {
    while (resnode *first = device->results) {
        device->results = first->next;
        free_resnode(first);
    }
}

void free_devnode(devnode *device) {
    if (device == nullptr) return;
    for (char *text : {device->id, device->conf_id, device->name, device->comment, device->unit})
        heap_free(text);
    free_results(device);
    free_lognode(device->lognode);
    device->state_free(device);
    heap_free(device);
}

void free_devnode_list(devnode *first) {
    while (first != nullptr) {
        devnode *next = first->next;
        free_devnode(first);
        first = next;
    }
}

void free_devtree(devtree *group) {
    while (group != nullptr) {
        devtree *next = group->next;
        heap_free(group->id);
        heap_free(group->name);
        free_devnode_list(group->devices);
        free_devtree(group->children);
        heap_free(group);
        group = next;
    }
}

void lognode_changed(lognode *node) {
    if (node->index != nullptr) node->index_free(node->index);
    node->index = nullptr;
}

void free_lognode(lognode *node) {
    if (node == nullptr) return;
    lognode_changed(node);
    tn_regfree(&node->separator);
    free_logrule_list(node->rules);
    heap_free(node);
}

void free_logrule_list(logrule *first) {
    while (first != nullptr) {
        logrule *next = first->next;
        log_clause_free(first->clause);
        heap_free(first->destination);
        heap_free(first);
        first = next;
    }
}

// Each line is freed behind the one that follows it; the list is turned round for that, so that its length
// costs no stack.
void free_clinfo_list(clinfo *first) {
    clinfo *last = nullptr;
    while (first != nullptr) {
        clinfo *next = first->next;
        first->next = last;
        last = first;
        first = next;
    }
    while (last != nullptr) {
        clinfo *before = last->next;
        heap_free(last->label);
        heap_free(last->value);
        heap_free(last);
        last = before;
    }
}

devtree *devtree_child(devtree *parent, const char *id, const char *name) {
    devtree **link = &parent->children;
    for (; *link != nullptr; link = &(*link)->next)
        if (text_equal((*link)->id, id)) return *link;
    devtree_guard child(heap_new<devtree>());
    if (child == nullptr) return nullptr;
    child->id = text_copy(id);
    child->name = text_copy(name);
    child->parent = parent;
    if (child->id == nullptr || child->name == nullptr) return nullptr;
    return *link = child.release();
}

void devtree_add_devices(devtree *group, devnode *chain) {
    if (chain == nullptr) return;
    devnode *last = chain;
    for (devnode *device = chain; device != nullptr; device = device->next) {
        device->parent = group;
        last = device;
    }
    last->next = group->devices;
    group->devices = chain;
}

void free_no_state(devnode *device) {
    if (device->state_magic != NO_STATE_MAGIC) fatal("free_no_state(): Assertion failed");
}

void clear_state(devnode *device) {
    device->state = nullptr;
    device->state_free = free_no_state;
    device->state_magic = NO_STATE_MAGIC;
}

void append_result(devnode *device, resnode *result) {
    *device->results_tail = result;
    device->results_tail = &result->next;
}

void lognode_add_rule(lognode *node, logrule *rule) {
    if (node == nullptr) fatal("Cannot add logrule to NULL lognode");
    logrule **link = &node->rules;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = rule;
    lognode_changed(node);
}

static uint32_t depth_of(const devtree *group) {
    uint32_t depth = 0;
    for (; group != nullptr; group = group->parent)
        depth++;
    return depth;
}

devtree *group_at_depth(const devnode *device, uint32_t depth) {
    uint32_t below = depth_of(device->parent);
    if (depth == 0 || depth > below) return nullptr;
    devtree *group = device->parent;
    for (; below > depth; below--)
        group = group->parent;
    return group;
}

uint32_t group_path(devtree *group, devtree **array, uint32_t max) {
    uint32_t depth = depth_of(group);
    uint32_t place = depth;
    for (; group != nullptr; group = group->parent) {
        place--;
        if (place < max) array[place] = group;
    }
    return depth;
}

uint32_t devtree_count_checks(const devtree *tree) {
    uint32_t count = 0;
    for (; tree != nullptr; tree = tree->next) {
        for (const devnode *device = tree->devices; device != nullptr; device = device->next)
            count++;
        count += devtree_count_checks(tree->children);
    }
    return count;
}

bool is_bitmap_type(uint32_t type) {
    static constexpr bool bitmap[] = {false, true,  true,  true, false, true, false,
                                      false, false, false, true, true,  true, true};
    return type < sizeof bitmap && bitmap[type];
}
