// Finding the next check, and a whole turn of the main cycle's work on it, over trees of growing size.

#include "bench/bench_tree.h"
#include "core/due_index.h"
#include "core/schedule.h"
#include "devtree/check_device.h"
#include "devtree/check_table.h"
#include "logcheck/log_silence.h"
#include "platform/clock.h"
#include "state/variables.h"

#include <benchmark/benchmark.h>

namespace {

// A family whose checks cost nothing, so that what is measured is all the rest.
const char *check_nothing(devnode *, resnode *result) {
    result->value = 42;
    result->real_value = 42;
    return nullptr;
}

check_entry families[] = {{.name = "bench", .check = check_nothing}, {}};

uint32_t size_of(const benchmark::State &state) {
    return static_cast<uint32_t>(state.range(0));
}

void walk(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", size_of(state));
    for (auto _ : state)
        benchmark::DoNotOptimize(find_next_due(tree.get()));
}

// The first look behind it takes the devices in.
void rebuild_index(devtree *tree) {
    due_index_rebuild(tree);
    benchmark::DoNotOptimize(due_index_next());
}

void rebuild(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", size_of(state));
    for (auto _ : state)
        rebuild_index(tree.get());
    due_index_clear();
}

void next(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", size_of(state));
    rebuild_index(tree.get());
    for (auto _ : state) {
        devnode *device = due_index_next();
        device->next_check += device->frequency;
    }
    due_index_clear();
}

// Runs the check and gives its result away, as the checkin would later.
void run_and_reschedule(devnode *device) {
    run_check(device);
    free_resnode(device->results);
    device->results = nullptr;
    device->results_tail = &device->results;
    device->next_check += device->frequency;
}

void cycle(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", size_of(state));
    check_table = families;
    rebuild_index(tree.get());
    for (auto _ : state) {
        run_and_reschedule(due_index_next());
        due_index_next();
    }
    due_index_clear();
}

void cycle_by_walk(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", size_of(state));
    check_table = families;
    for (auto _ : state) {
        run_and_reschedule(find_next_due(tree.get()));
        find_next_due(tree.get());
    }
}

// Log checks with a silence limit, whose times are pulled forward at each look.
devtree_guard make_log_tree(uint32_t count) {
    devtree_guard tree = make_tree("log", count);
    var_reset();
    each_check(tree.get(), [](devnode *device) {
        device->type = TYPE_ADV_LOG;
        device->lognode = alloc_lognode();
        device->lognode->warningSilence = 3600;
        device->lognode->alertSilence = -1;
        log_silence_reset(device, time_now() + 86400, 0);
        device->next_check = time_now();
    });
    return tree;
}

void next_of_logs(benchmark::State &state) {
    devtree_guard tree = make_log_tree(size_of(state));
    rebuild_index(tree.get());
    for (auto _ : state)
        benchmark::DoNotOptimize(due_index_next());
    due_index_clear();
    var_reset();
}

} // namespace

BENCHMARK(walk)->Name("find_next_due")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(rebuild)->Name("due_index_rebuild")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(next)->Name("due_index_next")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(cycle)->Name("check_cycle")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(cycle_by_walk)->Name("check_cycle_by_walk")->Arg(10)->Arg(1000)->Arg(100000);
BENCHMARK(next_of_logs)->Name("due_index_next_of_logs")->Arg(10)->Arg(100)->Arg(1000);
