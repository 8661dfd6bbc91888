// The readers of trees and of what they are made of. A tree that was read can be counted, named, moved and
// written.
#include "devtree/naming.h"
#include "devtree/transfer.h"
#include "fuzz/accepting_regex.h"
#include "fuzz/fuzz_host.h"
#include "protocol/checkin.h"
#include "protocol/lists.h"

using device_list_guard = guard<devnode, free_devnode_list>;

static void use_devices(const devtree *group) {
    for (const devnode *device = group->devices; device != nullptr; device = device->next) {
        fuzz_require(device->parent == group && device->frequency != 0, "a check is complete");
        heap_free(devnode_full_name(device));
        fuzz_require(group_at_depth(device, 1) != nullptr, "a check stands below a top group");
    }
}

static void use_groups(const devtree *list, const devtree *parent) {
    for (const devtree *group = list; group != nullptr; group = group->next) {
        fuzz_require(group->parent == parent && group->id != nullptr, "a group is complete");
        use_devices(group);
        use_groups(group->children, group);
    }
}

static void use_tree(io *stream, const char *(*read)(io *stream, devtree *parent, devtree **out)) {
    devtree *tree = nullptr;
    if (read(stream, nullptr, &tree) != nullptr) {
        fuzz_require(tree == nullptr, "a tree that fails is none");
        return;
    }
    devtree_guard owner(tree);
    use_groups(tree, nullptr);
    transfer_state(tree, tree);
    memory_io out;
    uint32_t remaining = 50;
    fuzz_require(checkin_write_devtree(out, tree, &remaining) == nullptr && out.written.empty(),
                 "a new tree has no results");
}

static void read_groups(io *stream) {
    use_tree(stream, read_devtree_list);
}

static void read_action_groups(io *stream) {
    use_tree(stream, read_action_conf_list);
}

static void read_checks(io *stream) {
    devnode *first = nullptr;
    static_cast<void>(read_devnode_list(stream, nullptr, &first));
    device_list_guard owner(first);
}

static void read_actions(io *stream) {
    devnode *first = nullptr;
    static_cast<void>(read_action_list(stream, nullptr, &first));
    device_list_guard owner(first);
}

static void read_check(io *stream) {
    devnode_guard device(alloc_devnode());
    static_cast<void>(read_devnode(stream, device.get(), 0));
}

static void read_log_check(io *stream) {
    devnode_guard device(alloc_devnode());
    static_cast<void>(read_adv_log_check(stream, device.get(), 0));
}

static void read_values(io *stream) {
    int32_t integer;
    double real;
    int64_t time;
    while (read_check_value_int(stream, &integer) == nullptr &&
           read_check_value_real(stream, &real) == nullptr &&
           read_check_value_time(stream, &time, -1) == nullptr)
        continue;
}

static void (*const readers[])(io *stream) = {
    read_groups, read_action_groups, read_checks, read_actions, read_check, read_log_check, read_values,
};

static void run(const uint8_t *data, size_t size) {
    regex_host = &accepting_regex;
    fuzz_input input = {data, size};
    auto *reader = readers[input.take_byte() % std::size(readers)];
    memory_io stream(input.take_rest());
    reader(stream);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
