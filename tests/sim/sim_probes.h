// What the probes find on a simulated host: two volumes, some memory, a processor, a network adapter, a
// disk.
#pragma once

#include <cstdint>
#include <map>
#include <string>

struct sim_volume {
    uint64_t free_bytes;
    uint64_t total_bytes;
};

struct sim_probes {
    std::map<std::string, sim_volume> volumes = {{"/", {40ULL << 30, 100ULL << 30}},
                                                 {"/home", {300ULL << 30, 500ULL << 30}}};
    int64_t delay_s = 0; // how long a look at a volume takes

    uint64_t free_memory = 2ULL << 30;
    uint64_t total_memory = 8ULL << 30;
    // Each look at the memory finds 1 kB more than the one before, so that a result tells which look it is
    // of.
    bool counts_looks = false;
    uint64_t looks = 0;

    int idle_percent = 75;
};

struct counter_sources_ops;
struct drives_ops;
struct host_info_ops;
struct ipmi_channel_ops;
struct memory_ops;
struct perf_counter_ops;
extern const counter_sources_ops sim_counter_sources;
extern const drives_ops sim_drives;
extern const host_info_ops sim_host_info;
extern const ipmi_channel_ops sim_ipmi_channel; // without a BMC
extern const memory_ops sim_memory;
extern const perf_counter_ops sim_counters;
