#include "bench/bench_tree.h"

#include "platform/text.h"

#include <cstdio>

static constexpr uint32_t CHECKS_OF_A_GROUP = 20;
static constexpr int32_t PERIOD = 60;           // seconds
static constexpr int64_t START = 1'700'000'000; // of all due times
static constexpr uint32_t STRIDE = 7919; // a prime, so that neighbours in the tree are not due together

static devtree *make_group(const char *id, devtree *parent) {
    auto *group = heap_new<devtree>();
    group->id = text_copy(id);
    group->name = text_copy(id);
    group->parent = parent;
    return group;
}

static devnode *make_check(uint32_t number) {
    char id[32];
    snprintf(id, sizeof id, "check-%u", number);
    devnode *device = alloc_devnode();
    device->id = text_copy(id);
    device->conf_id = text_copy(id);
    device->type = number % 2 == 0 ? TYPE_CONTINUOUS : TYPE_REAL_CONTINUOUS;
    device->limits.real = {-1, -1, -1, -1};
    if (device->type == TYPE_CONTINUOUS) device->limits.continuous = {-1, -1, -1, -1};
    device->description = 1;
    device->frequency = PERIOD;
    device->next_check = START + number * STRIDE % PERIOD;
    return device;
}

devtree_guard make_tree(const char *id, uint32_t count) {
    devtree_guard top(make_group(id, nullptr));
    devtree **link = &top->children;
    for (uint32_t made = 0; made < count; link = &(*link)->next) {
        char name[32];
        snprintf(name, sizeof name, "group-%u", made / CHECKS_OF_A_GROUP);
        *link = make_group(name, top.get());
        devnode *chain = nullptr;
        for (uint32_t i = 0; i < CHECKS_OF_A_GROUP && made < count; i++, made++) {
            devnode *device = make_check(made);
            device->next = chain;
            chain = device;
        }
        devtree_add_devices(*link, chain);
    }
    return top;
}

void queue_results(devtree *tree, uint32_t each) {
    each_check(tree, [each](devnode *device) {
        for (uint32_t i = 0; i < each; i++) {
            resnode *result = alloc_resnode();
            result->check_time = START + i * PERIOD;
            result->value = static_cast<int32_t>(i * STRIDE);
            result->real_value = i * 1.5 + 0.25;
            append_result(device, result);
        }
    });
}
