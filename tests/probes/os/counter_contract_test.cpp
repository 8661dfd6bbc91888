// What the gateway relies on, held against the counters of a recorded machine and, beside this file, against
// those of a real one.
#include "probes/os/counter_contract.h"

#include "probes/os/disks.h"
#include "probes/os/interfaces.h"
#include "probes/os/perf_browse.h"

INSTANTIATE_TEST_SUITE_P(recorded, counter_contract,
                         testing::Values(counter_host{"recorded", nullptr, &recorded_counter_ops}),
                         counter_host_name);

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

TEST_P(counter_contract, tells_of_a_process) {
    std::string name = machine != nullptr ? "web server" : own_process_name();
    for (const char *counter :
         {"Handle Count", "Private Bytes", "Working Set Peak", "Priority Base", "Elapsed Time"})
        EXPECT_GE(value_of(made("Process", name.c_str(), counter).get()), 1) << counter;
    EXPECT_LE(value_of(made("Process", name.c_str(), "Working Set - Private").get()),
              value_of(made("Process", name.c_str(), "Private Bytes").get()) +
                  value_of(made("Process", name.c_str(), "Working Set").get()));
    for (const char *counter : {"IO Data Operations/sec", "IO Data Bytes/sec", "Page File Bytes"})
        EXPECT_GE(value_of(made("Process", name.c_str(), counter).get()), 0) << counter;
}

static devtree *find_child(devtree *group, const char *id) {
    devtree *child = group->children;
    while (child != nullptr && !text_equal(child->id, id))
        child = child->next;
    return child;
}

// On the recorded machine no time passes by itself, so that the first check of a rate fails there.

TEST_P(counter_contract, offers_and_checks_interfaces) {
    devtree root = {};
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    devtree_guard families(root.children);
    devtree *loopback = find_child(families.get(), "lo");
    ASSERT_NE(loopback, nullptr);
    int devices = 0;
    for (devnode *device = loopback->devices; device != nullptr; device = device->next, devices++) {
        EXPECT_EQ(device->limits.hint.hint_present, 0U) << "a loopback has no speed";
        resnode result = {};
        if (check_ifthrough(device, &result) != nullptr) pass_time();
        EXPECT_SUCCESS(check_ifthrough(device, &result));
        EXPECT_GE(result.real_value, 0) << device->id;
    }
    EXPECT_EQ(devices, 3);
}

TEST_P(counter_contract, offers_disks_in_one_group) {
    devtree root = {};
    EXPECT_SUCCESS(scan_block_devices(&root));
    devtree_guard family(root.children);
    if (family == nullptr) return; // a host without disks
    for (devtree *disk = find_child(family.get(), "physical")->children; disk != nullptr; disk = disk->next) {
        resnode result = {};
        if (check_block(disk->devices, &result) != nullptr) pass_time();
        EXPECT_SUCCESS(check_block(disk->devices, &result));
    }
}

TEST_P(counter_contract, offers_counters_that_its_checks_can_read) {
    devtree root = {};
    EXPECT_SUCCESS(scan_perfcnts(&root));
    devtree_guard family(root.children);
    family->parent = nullptr; // as in the tree that a server sends
    for (const char *id : {"System", "Processor", "Memory", "Process", "LogicalDisk", "Network Interface",
                           "Objects", "IPv4", "TCPv4", "UDPv4"})
        EXPECT_NE(find_child(family.get(), id), nullptr) << id;
    for (const char *id : {"Memory", "Objects", "TCPv4"}) {
        for (devnode *device = find_child(family.get(), id)->devices; device != nullptr;
             device = device->next) {
            resnode result = {};
            if (check_perfcnt(device, &result) != nullptr) pass_time();
            EXPECT_SUCCESS(check_perfcnt(device, &result));
            EXPECT_GE(result.real_value, 0) << device->id;
        }
    }
}
