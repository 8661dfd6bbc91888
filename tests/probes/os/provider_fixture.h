// The counter provider on a recorded machine, with one query.
#pragma once

#include "fakes/test_host.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_provider.h"
#include "probes/os/machine.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/recorded_ops.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

inline constexpr uint64_t SECOND = 1'000'000'000;

struct provider : testing::Test {
    test_host host;
    recorded_machine machine{"container"};
    pdh_query *query = nullptr;
    pdh_counter *counter = nullptr;

    provider() {
        drives_host = &recorded_drives_ops;
        EXPECT_EQ(provider_open_query(&query), 0U);
    }
    ~provider() override {
        provider_close_query(query);
        drives_host = nullptr;
        counter_sources_reset();
        EXPECT_EQ(host.blocks, 0);
    }
    // Finds what is there now, as an add a second later would.
    uint32_t add(const char *path) {
        counter_sources_reset();
        return provider_add_counter(query, path, &counter);
    }
    // The instances of an object as paths have them, "(name)" and "(name#1)".
    static std::vector<std::string> instances_of(const char *object) {
        uint32_t counter_size = 0;
        uint32_t size = 0;
        EXPECT_EQ(provider_enum_object_items(object, nullptr, &counter_size, nullptr, &size, 400),
                  PDH_MORE_DATA);
        std::vector<char> counters(counter_size);
        std::vector<char> instances(size);
        EXPECT_EQ(
            provider_enum_object_items(object, counters.data(), &counter_size, instances.data(), &size, 400),
            PDH_OK);
        std::vector<std::string> found;
        std::map<std::string, int> seen;
        for (const char *at = instances.data(); *at != '\0'; at += strlen(at) + 1) {
            int before = seen[at]++;
            std::string number = before > 0 ? "#" + std::to_string(before) : "";
            found.push_back("(" + std::string(at) + number + ")");
        }
        return found;
    }
    // The value after a new sample, or the status below 0.
    double sample() {
        uint32_t status = provider_collect(query);
        return status == 0 ? value() : -static_cast<double>(status);
    }
    double value() {
        double found = -1;
        uint32_t status = provider_format_value(counter, PDH_FMT_DOUBLE, &found);
        return status == 0 ? found : -static_cast<double>(status);
    }
    // The processor line "cpu", with its eight kinds of time.
    void set_times(const std::string &times) { machine.texts["/proc/stat"] = "cpu  " + times + " 0 0\n"; }
};

inline constexpr double INVALID_DATA = -static_cast<double>(PDH_INVALID_DATA);
inline constexpr double NO_DATA = -static_cast<double>(PDH_NO_DATA);
