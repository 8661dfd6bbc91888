// What the provider lists at which detail level, and how it describes it.
#include "fakes/test_host.h"
#include "probes/os/counter_objects.h"
#include "probes/os/provider_fixture.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using names = std::vector<std::string>;

names cut_list(const std::vector<char> &list) {
    names found;
    for (const char *at = list.data(); *at != '\0'; at += strlen(at) + 1)
        found.emplace_back(at);
    return found;
}

struct listing : provider {
    static names objects(uint32_t detail) {
        uint32_t size = 0;
        EXPECT_EQ(provider_enum_objects(nullptr, &size, detail, true), PDH_MORE_DATA);
        std::vector<char> list(size);
        EXPECT_EQ(provider_enum_objects(list.data(), &size, detail, false), PDH_OK);
        EXPECT_EQ(size, list.size());
        return cut_list(list);
    }
    static names counters_of(const char *object, uint32_t detail) {
        uint32_t size = 0;
        uint32_t instance_size = 0;
        EXPECT_EQ(provider_enum_object_items(object, nullptr, &size, nullptr, &instance_size, detail),
                  PDH_MORE_DATA);
        std::vector<char> list(size);
        std::vector<char> instances(instance_size);
        EXPECT_EQ(
            provider_enum_object_items(object, list.data(), &size, instances.data(), &instance_size, detail),
            PDH_OK);
        return cut_list(list);
    }
};

} // namespace

TEST_F(listing, names_every_object) {
    EXPECT_EQ(objects(DETAIL_NOVICE),
              (names{"System", "Processor", "Memory", "Process", "LogicalDisk", "Paging File",
                     "Network Interface", "PhysicalDisk", "Objects", "IPv4", "TCPv4", "UDPv4"}));
    EXPECT_TRUE(objects(99).empty());
}

TEST_F(listing, grows_with_the_detail_level) {
    for (const counter_object *object : counter_objects) {
        size_t before = 0;
        for (uint32_t detail : {DETAIL_NOVICE, DETAIL_ADVANCED, DETAIL_EXPERT, DETAIL_WIZARD}) {
            size_t count = object->list_instances == nullptr || !instances_of(object->name).empty()
                               ? counters_of(object->name, detail).size()
                               : object->counters.size();
            EXPECT_GE(count, before) << object->name;
            before = count;
        }
        EXPECT_EQ(before, object->counters.size()) << object->name;
    }
    EXPECT_EQ(counters_of("PhysicalDisk", 100).size(), 10U);
    EXPECT_EQ(counters_of("PhysicalDisk", 199).size(), 10U) << "no level of its own";
    EXPECT_EQ(counters_of("PhysicalDisk", 200).size(), 17U);
    EXPECT_EQ(counters_of("PhysicalDisk", 300).size(), 21U);
    EXPECT_EQ(counters_of("LogicalDisk", 200).size(), 2 + 17U);
    EXPECT_EQ(counters_of("Process", 100).size(), 4U);
    EXPECT_EQ(counters_of("Process", 200).size(), 10U);
    EXPECT_EQ(counters_of("Process", 300).size(), 23U);
}

TEST_F(listing, gives_every_row_a_level_a_unit_and_a_name_of_its_own) {
    for (const counter_object *object : counter_objects) {
        std::set<std::string> seen;
        for (const counter_row &row : object->counters) {
            EXPECT_TRUE(seen.insert(row.name).second) << row.name;
            EXPECT_TRUE(row.detail == 100 || row.detail == 200 || row.detail == 300 || row.detail == 400)
                << row.name;
            bool by_time = std::string(row.name).ends_with("/sec");
            EXPECT_TRUE(!by_time || row.type == COUNTER_RATE) << row.name;
            bool part = row.name[0] == '%';
            EXPECT_EQ(part, row.type >> 28 == 2) << row.name;
        }
    }
}

TEST_F(listing, names_instances) {
    machine.use("numa");
    EXPECT_EQ(instances_of("Network Interface"),
              (names{"(lo)", "(ib0)", "(bond0)", "(bond0.100)", "(enp129s0f0np0)", "(enp129s0f1np1)"}));
    EXPECT_EQ(instances_of("Paging File"),
              (names{"(/dev/dm-3)", "(/srv/My\\040Data/swap\\040file)", "(_Total)"}));
    names disks = instances_of("PhysicalDisk");
    EXPECT_EQ(disks.size(), 43U);
    EXPECT_EQ(disks[0], "(2816 sr0)");
    EXPECT_EQ(disks[1], "(2048 sda)");
    EXPECT_EQ(disks[36], "(26624 cciss/c0d0)");
    EXPECT_EQ(disks.back(), "(_Total)");
    EXPECT_EQ(instances_of("Processor").size(), 383U);
    machine.use("container");
    EXPECT_EQ(instances_of("LogicalDisk"), (names{"(/)", "(/data)"}));
}

TEST_F(listing, names_processes_as_often_as_there_are) {
    machine.use("stacked");
    EXPECT_EQ(instances_of("Process"), (names{"(_Total)", "(systemd)", "(kthreadd)", "(kworker/0:1-events)",
                                              "(nginx)", "(nginx#1)", "(nginx#2)", "((sd-pam))", "(a b)? c)",
                                              "(tr\xFC"
                                              "b \"x\")",
                                              "(java#1)"}))
        << "and none for a process without a name";
}

TEST_F(listing, holds_no_counters_of_an_object_without_instances) {
    EXPECT_TRUE(counters_of("Paging File", 400).empty());
    machine.unreadable = {"/proc/diskstats"};
    EXPECT_TRUE(counters_of("PhysicalDisk", 400).empty());
    EXPECT_TRUE(instances_of("PhysicalDisk").empty());
}

TEST_F(listing, refuses_what_it_does_not_know) {
    uint32_t size = 0;
    EXPECT_EQ(provider_enum_object_items("Nothing", nullptr, &size, nullptr, &size, 400),
              PDH_CSTATUS_NO_OBJECT);
    EXPECT_EQ(provider_enum_object_items("", nullptr, &size, nullptr, &size, 400), PDH_CSTATUS_NO_OBJECT);
    EXPECT_EQ(provider_enum_object_items(nullptr, nullptr, &size, nullptr, &size, 400), PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_enum_object_items("System", nullptr, nullptr, nullptr, &size, 400),
              PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_enum_objects(nullptr, nullptr, 400, true), PDH_INVALID_ARGUMENT);
}

TEST_F(listing, does_not_write_behind_a_small_buffer) {
    uint32_t whole = 0;
    uint32_t none = 0;
    provider_enum_objects(nullptr, &whole, 400, true);
    for (uint32_t limit = 0; limit < whole; limit++) {
        std::string buffer(300, 'x');
        uint32_t size = limit;
        EXPECT_EQ(provider_enum_objects(buffer.data(), &size, 400, false), PDH_MORE_DATA);
        EXPECT_EQ(size, whole);
        EXPECT_EQ(buffer.find_first_not_of('x', limit), std::string::npos) << limit;
    }
    uint32_t instances = 0;
    provider_enum_object_items("Process", nullptr, &none, nullptr, &instances, 400);
    std::string counters(none, 'x');
    std::string list(instances, 'x');
    uint32_t size = instances - 1;
    EXPECT_EQ(provider_enum_object_items("Process", counters.data(), &none, list.data(), &size, 400),
              PDH_MORE_DATA);
    EXPECT_EQ(list.back(), 'x');
    EXPECT_EQ(size, instances);
}

TEST_F(listing, gives_the_lists_that_it_has_sized) {
    uint32_t size = 0;
    uint32_t instance_size = 0;
    provider_enum_object_items("Network Interface", nullptr, &size, nullptr, &instance_size, 400);
    machine.texts["/proc/net/dev"] =
        "a-much-longer-name: 1 2 3 4 5 6 7 8 9 10 11 12\n" + machine.text("/proc/net/dev");
    std::vector<char> counters(size);
    std::vector<char> instances(instance_size);
    EXPECT_EQ(provider_enum_object_items("Network Interface", counters.data(), &size, instances.data(),
                                         &instance_size, 400),
              PDH_OK);
    EXPECT_EQ(cut_list(instances), (names{"lo", "eth0"}));
    EXPECT_EQ(instances_of("Network Interface").size(), 3U) << "and looks anew for the next sizes";
}

TEST_F(listing, describes_a_counter_by_its_type) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), PDH_OK);
    uint32_t size = 0;
    EXPECT_EQ(provider_counter_info(counter, &size, nullptr), PDH_MORE_DATA);
    EXPECT_EQ(size, sizeof(counter_description));
    counter_description found = {};
    size--;
    EXPECT_EQ(provider_counter_info(counter, &size, &found), PDH_MORE_DATA);
    EXPECT_EQ(found.type, 0U);
    EXPECT_EQ(provider_counter_info(counter, &size, &found), PDH_OK);
    EXPECT_EQ(found.length, sizeof found);
    EXPECT_EQ(found.type, 0x10410500U);
    EXPECT_EQ(provider_counter_info(nullptr, &size, &found), PDH_INVALID_HANDLE);
    EXPECT_EQ(provider_counter_info(counter, nullptr, &found), PDH_INVALID_ARGUMENT);
}
