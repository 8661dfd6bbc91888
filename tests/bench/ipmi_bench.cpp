// Above the channel's seam: a scan of the BMC's sensors and a check of each kind, over a BMC in memory that
// costs as little as it can. What it costs by itself is measured beside them.

#include "devtree/devtree.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/hw/ipmi_channel.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/scripted_channel.h"

#include <benchmark/benchmark.h>

namespace {

constexpr uint32_t RECORDS = 400;

struct bench_bmc {
    scripted_channel channel;
    devtree root = {};

    bench_bmc() {
        channel.keeps_steps = false;
        log_set_level(LOG_ERROR);
        ipmi_sensors_reset();
        channel.bmc.add_many(RECORDS);
        channel.bmc.add({.type = 2, .number = 201, .reading_type = 3, .text = "Door"});
        channel.bmc.readings[201] = {{0, 0, 0xC0, 2}};
        channel.bmc.add({.number = 202, .text = "Zero"});
        channel.bmc.readings[202] = {{0, 0, 0xC0, 0}};
    }
    ~bench_bmc() {
        free_devtree(root.children);
        release_bmcs();
        ipmi_sensors_reset();
        log_set_level(LOG_NORMAL);
    }
    bool scan() {
        free_devtree(root.children);
        root.children = nullptr;
        channel.bmc.asked.clear();
        return scan_ipmi_sensors(&root) == nullptr;
    }
};

void scan_sensors(benchmark::State &state) {
    bench_bmc bmc;
    for (auto _ : state)
        if (!bmc.scan()) return state.SkipWithError("the scan failed");
    state.counters["commands"] = static_cast<double>(bmc.channel.bmc.asked.size());
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * (RECORDS + 2));
}

// The scan's commands, sent to the BMC alone.
void answer_alone(benchmark::State &state) {
    bench_bmc bmc;
    if (!bmc.scan()) return state.SkipWithError("the scan failed");
    std::vector<bmc_request> requests = bmc.channel.bmc.asked;
    for (auto _ : state) {
        bmc.channel.bmc.asked.clear();
        for (const bmc_request &request : requests)
            benchmark::DoNotOptimize(bmc.channel.bmc.answer(request));
    }
}

void check(benchmark::State &state, const char *group_id, const char *id) {
    bench_bmc bmc;
    if (!bmc.scan()) return state.SkipWithError("the scan failed");
    devtree group = {};
    group.id = text_copy(group_id);
    devnode_guard device(alloc_devnode());
    device->id = text_copy(id);
    device->parent = &group;
    for (auto _ : state) {
        bmc.channel.bmc.asked.clear();
        resnode_guard result(alloc_resnode());
        if (check_ipmi_sensor(device.get(), result.get()) != nullptr)
            return state.SkipWithError("the check failed");
    }
    state.counters["commands"] = static_cast<double>(bmc.channel.bmc.asked.size());
    heap_free(group.id);
}

} // namespace

BENCHMARK(scan_sensors)->Name("ipmi_scan_400/whole");
BENCHMARK(answer_alone)->Name("ipmi_scan_400/bmc_alone");
BENCHMARK_CAPTURE(check, analog, "S01", "00:00")->Name("ipmi_check/analog");
BENCHMARK_CAPTURE(check, zero, "S01", "00:CA")->Name("ipmi_check/believed_zero");
BENCHMARK_CAPTURE(check, digital, "S01", "00:C9:03")->Name("ipmi_check/digital");
BENCHMARK_CAPTURE(check, drive_bay, "S0D", "00:08:6F")->Name("ipmi_check/drive_bay");
BENCHMARK_CAPTURE(check, chassis, "chassisstatus", "drivefault")->Name("ipmi_check/chassis");
