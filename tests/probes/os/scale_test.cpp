// A large host: 300 interfaces, 2,000 drives, 2,000 processes; more than 90,000 counters to browse.
#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/disks.h"
#include "probes/os/interfaces.h"
#include "probes/os/perf_browse.h"
#include "probes/os/perf_counter.h"
#include "probes/os/provider_fixture.h"
#include "settings/settings.h"

#include <algorithm>
#include <ctime>
#include <gtest/gtest.h>

namespace {

constexpr uint32_t DRIVES = 2000;
constexpr int INTERFACES = 300;
constexpr int PROCESSES = 2000;

const char *many_roots(uint32_t index) {
    static char path[32];
    snprintf(path, sizeof path, "/srv/%u", index);
    return index < DRIVES ? path : nullptr;
}

uint32_t fixed(const char *) {
    return DRIVE_FIXED;
}

bool some_space(const char *, uint64_t *available, uint64_t *total, uint64_t *total_free) {
    *available = *total_free = 1000;
    *total = 4000;
    return true;
}

uint32_t asked_devices;

bool own_device(const char *path, uint32_t *out_major, uint32_t *out_minor) {
    asked_devices++;
    *out_major = 8;
    *out_minor = static_cast<uint32_t>(atoi(path + strlen("/srv/")));
    return true;
}

mount_search *nothing_below(const char *, char *, uint32_t) {
    return nullptr;
}

constexpr drives_ops MANY_DRIVES = {.drive_root = many_roots,
                                    .GetDriveTypeA = fixed,
                                    .GetDiskFreeSpaceExA = some_space,
                                    .drive_device = own_device,
                                    .FindFirstVolumeMountPointA = nothing_below};

struct large_host : provider {
    agent_config config = {.perf_cnt_level = 400};
    devtree root = {};
    clock_t started = clock();

    large_host() {
        drives_host = &MANY_DRIVES;
        perf_counter_host = &recorded_counter_ops;
        config_in_force = &config;
        asked_devices = 0;
        counter_names_reset();
        std::string interfaces;
        std::string processes;
        for (int i = 0; i < INTERFACES; i++) {
            std::string name = "eth" + std::to_string(i);
            interfaces += name + ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
            machine.texts["/sys/class/net/" + name + "/speed"] = "1000\n";
        }
        for (int i = 1; i <= PROCESSES; i++) {
            std::string number = std::to_string(i);
            processes += number + "\n";
            // Every tenth name is worn by a hundred of them.
            std::string name = i % 10 == 0 ? "worker" + std::to_string(i % 200) : "p" + number;
            machine.texts["/proc/" + number + "/io"] = "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\n";
            machine.texts["/proc/" + number + "/fd/"] = "0\n1\n2\n";
            machine.texts["/proc/" + number + "/stat"] =
                number + " (" + name + ") S 1 5 6 7 -1 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25\n";
        }
        std::string disks;
        for (uint32_t i = 0; i < DRIVES; i++)
            disks += "8 " + std::to_string(i) + " sda" + std::to_string(i) + " 1 2 3 4 5 6 7 8 9 10 11\n";
        machine.texts["/proc/diskstats"] = "8 4000 sda 1 2 3 4 5 6 7 8 9 10 11\n" + disks;
        machine.texts["/proc/net/dev"] = interfaces;
        machine.texts["/proc/"] = processes;
        // How large a text may be is known from the largest one.
        EXPECT_NE(read_counter_source("/proc/diskstats"), nullptr);
        machine.reads.clear();
    }
    ~large_host() override {
        free_devtree(root.children);
        counter_names_reset();
        config_in_force = nullptr;
        perf_counter_host = nullptr;
    }
    static uint32_t count_groups(const devtree *group) {
        uint32_t count = 0;
        for (; group != nullptr; group = group->next)
            count += 1 + count_groups(group->children);
        return count;
    }
    uint32_t count_reads(const std::string &path) const {
        return static_cast<uint32_t>(std::count(machine.reads.begin(), machine.reads.end(), path));
    }
    // The records and texts of the tree, and what is kept beside it.
    void expect_proportional_memory() const {
        uint32_t devices = devtree_count_checks(root.children);
        EXPECT_LE(host.blocks, 5LL * devices + 3LL * count_groups(root.children) + 20);
    }
};

} // namespace

TEST_F(large_host, offers_all_counters_reading_each_source_once) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    uint32_t devices = devtree_count_checks(root.children);
    EXPECT_GE(devices, 90000U);
    expect_proportional_memory();
    EXPECT_EQ(count_reads("/proc/net/dev"), 1U);
    EXPECT_EQ(count_reads("/proc/diskstats"), 2U) << "for two objects";
    EXPECT_EQ(asked_devices, DRIVES) << "once for all counters of a drive";
    EXPECT_EQ(count_reads("/proc/net/snmp"), 3U) << "for three objects";
    EXPECT_EQ(count_reads("/proc/1/stat"), 1U);
    EXPECT_EQ(count_reads("/proc/2000/stat"), 1U);
    EXPECT_EQ(count_reads("/proc/2000/io"), 1U);
    EXPECT_EQ(count_reads("/proc/2000/fd"), 1U);
    EXPECT_EQ(count_reads("/proc/2000/status"), 0U);
    EXPECT_LT(machine.reads.size(), 3 * PROCESSES + 40U);
    EXPECT_LT(clock() - started, 20 * CLOCKS_PER_SEC) << "it takes a tenth of that";
}

TEST_F(large_host, offers_all_interfaces) {
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(devtree_count_checks(root.children), INTERFACES * 12U);
    expect_proportional_memory();
    EXPECT_EQ(count_reads("/proc/net/dev"), 1U);
    EXPECT_EQ(machine.reads.size(), 1U + INTERFACES);
}

TEST_F(large_host, forgets_what_it_has_read) {
    EXPECT_SUCCESS(scan_perfcnts(&root));
    free_devtree(root.children);
    root.children = nullptr;
    counter_names_reset();
    EXPECT_LT(host.blocks, 10) << "the query of this test, and a small text";
    machine.now += SECOND;
    provider_collect(query);
    EXPECT_EQ(host.blocks, 1);
}

TEST_F(large_host, looks_anew_behind_a_second) {
    ASSERT_EQ(provider_add_counter(query, "\\Network Interface(eth1)\\Bytes Sent/sec", &counter), PDH_OK);
    machine.texts["/proc/net/dev"] = "eth2: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
    ASSERT_EQ(provider_add_counter(query, "\\Network Interface(eth1)\\Bytes Sent/sec", &counter), PDH_OK);
    machine.now += SECOND - 1;
    ASSERT_EQ(provider_add_counter(query, "\\Network Interface(eth1)\\Bytes Sent/sec", &counter), PDH_OK);
    EXPECT_EQ(count_reads("/proc/net/dev"), 1U);
    machine.now += 1;
    EXPECT_EQ(provider_add_counter(query, "\\Network Interface(eth1)\\Bytes Sent/sec", &counter),
              PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(count_reads("/proc/net/dev"), 2U);
}

TEST_F(large_host, looks_anew_for_another_object) {
    ASSERT_EQ(provider_add_counter(query, "\\TCPv4\\Connections Active", &counter), PDH_OK);
    ASSERT_EQ(provider_add_counter(query, "\\TCPv4\\Connections Passive", &counter), PDH_OK);
    EXPECT_EQ(count_reads("/proc/net/snmp"), 1U);
    ASSERT_EQ(provider_add_counter(query, "\\UDPv4\\Datagrams/sec", &counter), PDH_OK);
    EXPECT_EQ(count_reads("/proc/net/snmp"), 2U);
}
