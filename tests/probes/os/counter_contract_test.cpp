// What the gateway relies on, held against the counters of this host and against those of a recorded machine.
#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/machine.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/system_load.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

enum contract_host { THIS_HOST, RECORDED };

struct counter_contract : testing::TestWithParam<contract_host> {
    test_host host;
    std::unique_ptr<recorded_machine> machine;
    uint64_t turns = 0;

    counter_contract() {
        if (GetParam() == RECORDED) machine = std::make_unique<recorded_machine>("container");
        if (GetParam() == THIS_HOST) counter_sources_host = &counter_sources_ops_host;
        perf_counter_host = GetParam() == RECORDED ? &recorded_counter_ops : &perf_counter_ops_host;
        counter_names_reset();
    }
    ~counter_contract() override {
        counter_names_reset();
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

} // namespace

INSTANTIATE_TEST_SUITE_P(hosts, counter_contract, testing::Values(THIS_HOST, RECORDED),
                         [](const auto &kind) { return kind.param == THIS_HOST ? "this_host" : "recorded"; });

TEST_P(counter_contract, translates_its_own_names_both_ways) {
    for (const char *english : {"System", "Processor", "Memory", "% Processor Time", "Available Bytes"}) {
        char national[COUNTER_NAME_SIZE];
        char back[COUNTER_NAME_SIZE];
        ASSERT_TRUE(translate_counter_name_to_national(national, sizeof national, english)) << english;
        EXPECT_TRUE(translate_counter_name_to_english(back, sizeof back, national)) << english;
        EXPECT_STREQ(back, english);
    }
}

TEST_P(counter_contract, gives_shares_of_the_processors_between_0_and_100) {
    for (const char *share : {"% Processor Time", "% Idle Time", "% User Time", "% Privileged Time"}) {
        auto counter = made("Processor", "_Total", share);
        for (int i = 0; i < 2; i++) {
            double value = value_of(counter.get());
            EXPECT_GE(value, 0) << share;
            EXPECT_LE(value, 100) << share;
            pass_time();
        }
    }
}

TEST_P(counter_contract, has_a_first_processor) {
    auto counter = made("Processor", "0", "% Idle Time");
    EXPECT_EQ(create_counter_english("Processor", "99999", "% Idle Time", false), nullptr);
}

TEST_P(counter_contract, counts_context_switches_upwards) {
    auto counter = made("System", nullptr, "Context Switches/sec");
    EXPECT_GE(value_of(counter.get()), 0);
}

TEST_P(counter_contract, lets_the_uptime_grow) {
    auto counter = made("System", nullptr, "System Up Time");
    double first = value_of(counter.get());
    EXPECT_GT(first, 0);
    double later = first;
    for (int i = 0; i < 200000 && later <= first; i++) {
        pass_time();
        later = value_of(counter.get());
    }
    EXPECT_GT(later, first);
    EXPECT_LT(later, first + 3600);
}

TEST_P(counter_contract, has_memory_and_processes) {
    EXPECT_GT(value_of(made("Memory", nullptr, "Available Bytes").get()), 1024.0 * 1024);
    EXPECT_GE(value_of(made("System", nullptr, "Processes").get()), 1);
    EXPECT_GE(value_of(made("System", nullptr, "Processor Queue Length").get()), 0);
}

TEST_P(counter_contract, offers_and_checks_the_load) {
    devtree root = {};
    EXPECT_SUCCESS(scan_system(&root));
    devtree_guard group(root.children);
    int devices = 0;
    for (devnode *device = group->devices; device != nullptr; device = device->next, devices++) {
        resnode result = {};
        for (int i = 0; i < 200000 && check_system(device, &result) != nullptr; i++)
            pass_time();
        EXPECT_GE(result.value, 0) << device->id;
        EXPECT_TRUE(!text_equal(device->id, "idle") || result.value <= 10000) << result.value;
    }
    EXPECT_EQ(devices, 3);
}
