// The scans of interfaces, disks and all counters above the host's own calls, with a library behind them that
// the test scripts.

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/disks.h"
#include "probes/os/interfaces.h"
#include "probes/os/perf_browse.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"
#include "scripted/scripted_pdh.h"
#include "settings/settings.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <windows.h>

static constexpr char ENGLISH_NAMES[] = "2\0System\0"
                                        "6\0% Processor Time\0"
                                        "146\0Context Switches/sec\0"
                                        "198\0% Idle Time\0"
                                        "234\0PhysicalDisk\0"
                                        "238\0Processor\0"
                                        "388\0Bytes Total/sec\0"
                                        "400\0Packets/sec\0"
                                        "510\0Network Interface\0"
                                        "520\0Current Bandwidth\0"
                                        "674\0System Up Time\0";

static uint32_t english_names(const char *, char *buffer, uint32_t *size) {
    memcpy(buffer, ENGLISH_NAMES, sizeof ENGLISH_NAMES);
    *size = sizeof ENGLISH_NAMES;
    return 0;
}

namespace {

using names = std::vector<std::string>;

class counter_browse : public testing::Test {
protected:
    test_host host;
    const scripted_pdh *script = nullptr;
    perf_counter_ops ops = perf_counter_ops_host;
    agent_config config = {.perf_cnt_level = 200};
    devtree root = {};
    resnode result = {};

    void SetUp() override {
        auto *found = reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("pdh.dll"), "the_script"));
        script = static_cast<const scripted_pdh *>(found);
        ASSERT_NE(script, nullptr) << "the host's own library was loaded";
        script->reset();
        error_host = &error_ops_host;
        ops.RegQueryValueExA = english_names;
        perf_counter_host = &ops;
        config_in_force = &config;
        counter_names_reset();
    }
    void TearDown() override {
        free_devtree(root.children);
        counter_names_reset();
        perf_counter_host = nullptr;
        config_in_force = nullptr;
        EXPECT_EQ(host.blocks, 0);
        if (script == nullptr) return;
        EXPECT_EQ(script->open_queries(), 0);
        EXPECT_EQ(script->open_counters(), 0);
    }

    // Each device by its path and unit.
    static void add_paths(const devtree *group, const std::string &above, names *out) {
        for (; group != nullptr; group = group->next) {
            std::string path = above + group->id + "/";
            for (const devnode *device = group->devices; device != nullptr; device = device->next)
                out->push_back(path + device->id + " [" + (device->unit != nullptr ? device->unit : "-") +
                               "]");
            add_paths(group->children, path, out);
        }
    }
    names paths() const {
        names found;
        add_paths(root.children, "", &found);
        return found;
    }
    // The first device of the first group that has some, in a tree as a server sends it.
    devnode *first_device() {
        root.children->parent = nullptr;
        devtree *group = root.children;
        while (group->devices == nullptr)
            group = group->children;
        return group->devices;
    }
};

} // namespace

TEST_F(counter_browse, offers_all_counters_in_english) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(paths(),
              (names{"perf/System/Nur deutsch [-]", "perf/System/System Up Time [s]",
                     "perf/System/Context Switches/sec [/s]", "perf/Processor/0/% Processor Time [1%]",
                     "perf/Processor/1/% Processor Time [1%]", "perf/Processor/_Total/% Processor Time [1%]",
                     "perf/Network Interface/Intel[R] PRO_1000/Current Bandwidth [-]",
                     "perf/Network Interface/Intel[R] PRO_1000/Packets/sec [/s]",
                     "perf/Network Interface/Intel[R] PRO_1000/Bytes Total/sec [B/s]",
                     "perf/Network Interface/Intel[R] PRO_1000#1/Current Bandwidth [-]",
                     "perf/Network Interface/Intel[R] PRO_1000#1/Packets/sec [/s]",
                     "perf/Network Interface/Intel[R] PRO_1000#1/Bytes Total/sec [B/s]",
                     "perf/PhysicalDisk/0 C: D:/% Idle Time [1%]", "perf/PhysicalDisk/1/% Idle Time [1%]",
                     "perf/PhysicalDisk/_Total/% Idle Time [1%]"}));
    EXPECT_EQ(script->refreshes(), 1);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Creating counter with national name : Nur deutsch"));
}

TEST_F(counter_browse, stays_at_the_level_of_the_settings) {
    config.perf_cnt_level = 100;
    EXPECT_SUCCESS(scan_perfcnts(&root));
    for (const std::string &path : paths())
        EXPECT_EQ(path.find("Processor"), std::string::npos) << path;
}

TEST_F(counter_browse, offers_counters_that_are_not_described) {
    script->fail_next("PdhGetCounterInfoA", 5);
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(paths()[2], "perf/System/Context Switches/sec [/s]")
        << "the call for the size alone had failed";
}

TEST_F(counter_browse, leaves_out_what_does_not_open) {
    script->fail_next("PdhAddCounterA", PDH_CSTATUS_NO_COUNTER);
    EXPECT_SUCCESS(scan_perfcnts(&root));
    EXPECT_EQ(paths()[1], "perf/System/System Up Time [s]");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Counter :     Kontextwechsel/s, PdhAddCounter() failed"));
}

TEST_F(counter_browse, tells_why_there_are_no_objects) {
    script->fail_next("PdhEnumObjectsA", 5);
    EXPECT_FAILURE(scan_perfcnts(&root),
                   std::string("Error getting size for performance counter objects: ") + error_text(5));
}

TEST_F(counter_browse, reads_what_it_has_offered) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    devnode *device = first_device()->next;
    script->show(4711);
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(result.real_value, 4711);
}

TEST_F(counter_browse, offers_and_reads_interfaces) {
    script->show(1e9);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    // Two of one name are one group to this family, which has no numbers.
    EXPECT_EQ(paths(), (names{"ifthrough/Intel[R] PRO_1000/Bytes Total/sec [kB/s]",
                              "ifthrough/Intel[R] PRO_1000/Bytes Total/sec [kB/s]",
                              "ifevents/Intel[R] PRO_1000/Packets/sec [/s]",
                              "ifevents/Intel[R] PRO_1000/Packets/sec [/s]"}));
    EXPECT_EQ(root.children->children->devices->limits.hint.hint_max, 244140.625);
    script->show(2048);
    EXPECT_SUCCESS(check_ifthrough(first_device(), &result));
    EXPECT_EQ(result.real_value, 2);
}

TEST_F(counter_browse, tells_why_interfaces_cannot_be_listed) {
    script->fail_next("PdhEnumObjectItemsA", 5);
    EXPECT_FAILURE(scan_ifthroughput(&root),
                   std::string("Couldn't enumerate Network Interface objects: ") + error_text(5));
}

TEST_F(counter_browse, offers_and_reads_disks) {
    EXPECT_SUCCESS(scan_block_devices(&root));
    ASSERT_EQ(paths().size(), 13U);
    EXPECT_EQ(paths()[0], "block/physical/0/split_io [/s]");
    devnode *device = first_device();
    while (!text_equal(device->id, "idle"))
        device = device->next;
    script->show(99.5);
    EXPECT_SUCCESS(check_block(device, &result));
    EXPECT_EQ(result.real_value, 99.5);
    EXPECT_EQ(result.value, 100);
}
