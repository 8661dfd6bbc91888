// The counters of one host or another, for what the gateway relies on.
#pragma once

#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/machine.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/recorded_ops.h"
#include "probes/os/system_load.h"
#include "settings/settings.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

// Where the counters come from. Without sources of its own it is a recorded machine.
struct counter_host {
    const char *name;
    const counter_sources_ops *sources;
    const perf_counter_ops *counters;
};

struct counter_contract : testing::TestWithParam<counter_host> {
    test_host host;
    std::unique_ptr<recorded_machine> machine;
    uint64_t turns = 0;
    agent_config config = {.perf_cnt_level = 400};

    counter_contract() {
        if (GetParam().sources == nullptr)
            machine = std::make_unique<recorded_machine>("container");
        else
            counter_sources_host = GetParam().sources;
        perf_counter_host = GetParam().counters;
        drives_host = machine != nullptr ? &recorded_drives_ops : &drives_ops_host;
        config_in_force = &config;
        counter_names_reset();
    }
    ~counter_contract() override {
        counter_names_reset();
        if (counter_sources_host != nullptr) counter_sources_reset();
        config_in_force = nullptr;
        drives_host = nullptr;
        perf_counter_host = nullptr;
        counter_sources_host = nullptr;
    }
    // Lets the recorded machine live for a second; this host lives by itself.
    void pass_time() {
        if (machine == nullptr) return;
        turns++;
        machine->now += 1'000'000'000;
        std::string ticks = std::to_string(46828483 + 60 * turns);
        std::string stat = recorded_text(machine->folder + "/proc/stat");
        machine->texts["/proc/stat"] = stat;
        machine->change("/proc/stat", "cpu  10132153", "cpu  " + std::to_string(10132153 + 40 * turns));
        machine->change("/proc/stat", "46828483", ticks);
        machine->change("/proc/stat", "ctxt 115315982", "ctxt " + std::to_string(115315982 + 500 * turns));
        machine->texts["/proc/uptime"] = std::to_string(300213 + turns) + ".57 1.00\n";
    }
    // A value of a counter that may need time to pass: this host's processors are counted in hundredths of a
    // second.
    double value_of(perf_counter *counter) {
        double value = -1;
        const char *failure = nullptr;
        for (int i = 0; i < 200000; i++) {
            failure = get_counter_value(&value, counter);
            if (failure == nullptr) return value;
            pass_time();
        }
        ADD_FAILURE() << failure;
        return value;
    }
    perf_counter_guard made(const char *object, const char *instance, const char *counter) {
        perf_counter_guard made(create_counter_english(object, instance, counter, true));
        EXPECT_NE(made, nullptr) << counter;
        return made;
    }
};

// Another process of that name is the same to these tests.
inline std::string own_process_name() {
    std::string text = recorded_text("/proc/self/comm");
    return text.substr(0, text.find('\n'));
}

inline std::string counter_host_name(const testing::TestParamInfo<counter_host> &kind) {
    return kind.param.name;
}
