// Scans and checks of hardware over scripted devices: what stands above the host's answers costs, and how
// many operations it asks of the host.

#include "devtree/devtree.h"
#include "fakes/scripted_drives.h"
#include "fakes/scripted_raid.h"
#include "fakes/scripted_scsi.h"
#include "platform/text.h"
#include "probes/hw/raid.h"
#include "probes/hw/safte.h"
#include "probes/hw/smart.h"

#include <benchmark/benchmark.h>
#include <list>

namespace {

constexpr uint32_t DRIVES = 24;
constexpr uint32_t ENCLOSURES = 4;
constexpr uint8_t SLOTS = 24;

void count_operations(benchmark::State &state, size_t operations) {
    state.counters["operations"] = static_cast<double>(operations);
}

// ---- drives

void add_drives(scripted_drives *script) {
    for (uint32_t number = 0; number < DRIVES; number++)
        script->add(number);
}

void scan_drives(benchmark::State &state) {
    scripted_drives script;
    add_drives(&script);
    for (auto _ : state) {
        script.opened.clear();
        script.requests.clear();
        devtree root = {};
        benchmark::DoNotOptimize(scan_smart_ide(&root));
        free_devtree(root.children);
    }
    count_operations(state, script.opened.size() + script.requests.size());
}

void check_drive(benchmark::State &state) {
    scripted_drives script;
    add_drives(&script);
    devnode_guard device(alloc_devnode());
    device->id = text_copy("PhysicalDrive0");
    for (auto _ : state) {
        script.opened.clear();
        script.requests.clear();
        resnode_guard result(alloc_resnode());
        benchmark::DoNotOptimize(check_smart(device.get(), result.get()));
    }
    count_operations(state, script.opened.size() + script.requests.size());
}

// ---- enclosures

struct scripted_rack {
    scripted_scsi script;
    std::list<scripted_enclosure> enclosures;

    scripted_rack() {
        for (uint8_t i = 0; i < ENCLOSURES; i++) {
            enclosures.emplace_back(SLOTS, uint8_t{4}, uint8_t{2}, uint8_t{4});
            script.add(0).units.push_back(enclosures.back().unit(0, i));
        }
    }
    void forget() {
        script.opened.clear();
        script.requests.clear();
        script.queries = 0;
    }
    size_t operations() const {
        return script.opened.size() + script.requests.size() + static_cast<size_t>(script.queries);
    }
};

void scan_enclosures(benchmark::State &state) {
    scripted_rack rack;
    for (auto _ : state) {
        rack.forget();
        devtree root = {};
        benchmark::DoNotOptimize(scan_safte(&root));
        free_devtree(root.children);
    }
    count_operations(state, rack.operations());
}

// The first check of this kind in a scanned tree.
devnode *find_part(devtree *top, const char *kind) {
    for (devtree *group = top->children->children; group != nullptr; group = group->next)
        if (text_equal(group->id, kind)) return group->devices;
    return nullptr;
}

void check_enclosure(benchmark::State &state, const char *kind) {
    scripted_rack rack;
    devtree root = {};
    scan_safte(&root);
    root.children->parent = nullptr;
    devnode *part = find_part(root.children, kind);
    for (auto _ : state) {
        rack.forget();
        resnode_guard result(alloc_resnode());
        benchmark::DoNotOptimize(check_safte(part, result.get()));
    }
    free_devtree(root.children);
    count_operations(state, rack.operations());
}

// ---- RAID

void add_volumes(scripted_raid *script) {
    for (uint8_t volume = 0; volume < 8; volume++)
        script->add(0).volumes[volume] = {512, 1000, 0};
}

void scan_controllers(benchmark::State &state) {
    scripted_raid script;
    add_volumes(&script);
    for (auto _ : state) {
        script.opened.clear();
        script.requests.clear();
        devtree root = {};
        benchmark::DoNotOptimize(scan_raid(&root));
        free_devtree(root.children);
    }
    count_operations(state, script.opened.size() + script.requests.size());
    close_controllers();
}

void check_volume(benchmark::State &state) {
    scripted_raid script;
    add_volumes(&script);
    devtree root = {};
    if (const char *failure = scan_raid(&root)) state.SkipWithError(failure);
    devnode *device = root.children->children->children->children->devices;
    for (auto _ : state) {
        script.opened.clear();
        script.requests.clear();
        resnode_guard result(alloc_resnode());
        benchmark::DoNotOptimize(check_raid(device, result.get()));
    }
    count_operations(state, script.opened.size() + script.requests.size());
    free_devtree(root.children);
    close_controllers();
}

} // namespace

BENCHMARK(scan_drives)->Name("scan_smart_ide/24_drives");
BENCHMARK(check_drive)->Name("check_smart/tables");
BENCHMARK(scan_enclosures)->Name("scan_safte/4_enclosures_of_24_slots");
BENCHMARK_CAPTURE(check_enclosure, slot, "slot")->Name("check_safte/slot");
BENCHMARK_CAPTURE(check_enclosure, fan, "fan")->Name("check_safte/fan");
BENCHMARK_CAPTURE(check_enclosure, psu, "psu")->Name("check_safte/psu");
BENCHMARK_CAPTURE(check_enclosure, temp, "temp")->Name("check_safte/temp");
BENCHMARK(scan_controllers)->Name("scan_raid/8_volumes");
BENCHMARK(check_volume)->Name("check_raid/status");
