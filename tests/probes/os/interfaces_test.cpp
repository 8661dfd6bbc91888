#include "probes/os/interfaces.h"

#include "fakes/notes.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/perf_counter.h"
#include "probes/os/scripted_counters.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

// A host that speaks German, with two interfaces.
struct interface_fixture : testing::Test {
    test_host host;
    scripted_counters counters;

    interface_fixture() {
        counters.add(510, "Network Interface", "Netzwerk");
        counters.add(520, "Current Bandwidth", "Bandbreite");
        counters.add(388, "Bytes Total/sec", "Bytes gesamt/s");
        counters.add(264, "Bytes Received/sec", "Empfangene Bytes/s");
        counters.add(400, "Packets/sec", "Pakete/s");
        counters.add(402, "Packets Outbound Errors", "Paketfehler");
        counters.add(404, "Output Queue Length", "Warteschlange");
        counters.add(406, "bytes of another case", "kleine Bytes");
        counters.add(408, "packets in small", "kleine Pakete");
        counters.add(410, "Lost Packets", "Verlorene");
        counters.add(412, "Total Bytes", "Alle");
        counters.objects = {
            {"Netzwerk",
             {.counters = {"Bytes gesamt/s", "Pakete/s", "Bandbreite", "Empfangene Bytes/s", "Paketfehler",
                           "Warteschlange", "kleine Bytes", "kleine Pakete", "Verlorene", "Alle"},
              .instances = {"Intel[R] PRO", "WLAN"}}}};
    }
};

struct scan_interfaces : interface_fixture {
    devtree root = {};
    ~scan_interfaces() override { free_devtree(root.children); }

    const devtree *family(const char *id) const {
        for (const devtree *group = root.children; group != nullptr; group = group->next)
            if (text_equal(group->id, id)) return group;
        return nullptr;
    }
    static names ids_of(const devtree *group) {
        names ids;
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            ids.emplace_back(device->id);
        return ids;
    }
    static names groups_of(const devtree *group) {
        names ids;
        for (const devtree *child = group->children; child != nullptr; child = child->next)
            ids.emplace_back(child->id);
        return ids;
    }
    const devnode *device(const char *family_id, const char *id) const {
        for (const devnode *each = family(family_id)->children->devices; each != nullptr; each = each->next)
            if (text_equal(each->id, id)) return each;
        return nullptr;
    }
    void set_bandwidth(double bits) { counters.values = {{0, bits}, {0, bits}}; }
};

struct check_interface : interface_fixture {
    devtree family = {};
    devtree group = {};
    devnode *device = alloc_devnode();
    resnode result = {};
    check_interface() {
        group.id = text_copy("WLAN");
        group.parent = &family;
        device->parent = &group;
    }
    ~check_interface() override {
        free_devnode(device);
        heap_free(group.id);
    }
    const char *check(const char *id) {
        text_replace(&device->id, text_copy(id));
        return check_ifthrough(device, &result);
    }
};

} // namespace

TEST_F(scan_interfaces, offers_both_families_of_each_interface) {
    set_bandwidth(100e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(groups_of(&root), (names{"ifthrough", "ifevents"}));
    for (const char *id : {"ifthrough", "ifevents"}) {
        const devtree *group = family(id);
        EXPECT_EQ(group->group_flags, GROUP_OF_INSTANCES);
        EXPECT_STREQ(group->name_template, "%0r for %1r");
        EXPECT_EQ(groups_of(group), (names{"Intel[R] PRO", "WLAN"}));
        for (const devtree *each = group->children; each != nullptr; each = each->next) {
            EXPECT_STREQ(each->name, each->id);
            EXPECT_EQ(each->group_flags, 0U);
            EXPECT_EQ(each->name_template, nullptr);
            EXPECT_EQ(each->devices->parent, each);
        }
    }
    EXPECT_STREQ(family("ifthrough")->name, "Interface throughput");
    EXPECT_STREQ(family("ifevents")->name, "Interface events");
    note_text("Interface throughput");
    note_text("Interface events");
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_ifthroughput"));
}

TEST_F(scan_interfaces, leaves_out_a_name_that_the_wire_does_not_take) {
    std::string longest(NAME_LIMIT, 'x');
    counters.objects[0].second.instances = {longest + "y", longest};
    counters.values = {{0, 100e6}};
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(groups_of(family("ifthrough")), names{longest});
    EXPECT_EQ(groups_of(family("ifevents")), names{longest});
    EXPECT_TRUE(host.logged(LOG_WARNING, "Interface name too long: " + longest + "y"));
}

TEST_F(scan_interfaces, sorts_counters_by_their_english_names_and_leaves_others_out) {
    set_bandwidth(100e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(ids_of(family("ifthrough")->children), (names{"Bytes Received/sec", "Bytes Total/sec"}));
    EXPECT_EQ(ids_of(family("ifevents")->children), (names{"Packets Outbound Errors", "Packets/sec"}));
}

TEST_F(scan_interfaces, tells_each_device_on_the_wire) {
    set_bandwidth(100e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    const devnode *bytes = device("ifthrough", "Bytes Received/sec");
    EXPECT_STREQ(bytes->name, "Bytes Received/sec");
    EXPECT_STREQ(bytes->comment, "");
    EXPECT_STREQ(bytes->unit, "kB/s");
    EXPECT_EQ(bytes->type, TYPE_REAL_CONTINUOUS);
    EXPECT_EQ(bytes->description, 17U);
    const devnode *packets = device("ifevents", "Packets/sec");
    EXPECT_STREQ(packets->name, "Packets/sec");
    EXPECT_STREQ(packets->comment, "Packet Throughput");
    note_text("Packet Throughput");
    EXPECT_STREQ(packets->unit, "/s");
    EXPECT_EQ(packets->type, TYPE_REAL_CONTINUOUS);
    EXPECT_EQ(packets->description, 16U);
    EXPECT_EQ(packets->limits.hint.hint_present, 0U);
}

TEST_F(scan_interfaces, hints_at_the_bandwidth_and_twice_of_it_for_both_ways) {
    set_bandwidth(100'000'000);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    const auto &one_way = device("ifthrough", "Bytes Received/sec")->limits.hint;
    EXPECT_EQ(one_way.hint_present, 1U);
    EXPECT_EQ(one_way.hint_min, 0);
    EXPECT_FALSE(std::isfinite(one_way.hint_value));
    EXPECT_EQ(one_way.hint_max, 12207.03125);
    EXPECT_EQ(device("ifthrough", "Bytes Total/sec")->limits.hint.hint_max, 24414.0625);
}

TEST_F(scan_interfaces, gives_no_hint_for_a_bandwidth_of_0) {
    counters.values = {{0, 0.0}, {0, 8192.0}};
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(device("ifthrough", "Bytes Received/sec")->limits.hint.hint_present, 0U);
    EXPECT_EQ(family("ifthrough")->children->next->devices->limits.hint.hint_max, 1.0);
}

TEST_F(scan_interfaces, keeps_the_empty_groups_of_an_interface_whose_bandwidth_cannot_be_read) {
    counters.values = {{PDH_INVALID_HANDLE, 0}, {0, 1e6}};
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Error getting BandwidthCounter: Get INVALID_HANDLE from "
                                       "GetFormattedCounterValue() in get_counter_value()"));
    for (const char *id : {"ifthrough", "ifevents"}) {
        EXPECT_EQ(family(id)->children->devices, nullptr);
        EXPECT_NE(family(id)->children->next->devices, nullptr);
    }
}

TEST_F(scan_interfaces, keeps_the_empty_groups_of_an_interface_without_a_bandwidth_counter) {
    counters.closed = {"\\Netzwerk(Intel[R] PRO)\\Bandbreite"};
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error (PDH_CSTATUS_NO_COUNTER) adding counter "
                                         "\"\\Netzwerk(Intel[R] PRO)\\Bandbreite\" to query"));
    EXPECT_EQ(family("ifevents")->children->devices, nullptr);
    EXPECT_NE(family("ifevents")->children->next->devices, nullptr);
}

TEST_F(scan_interfaces, makes_nothing_of_a_counter_without_an_english_name) {
    counters.objects[0].second.counters.emplace_back("Bytes ohne Namen");
    set_bandwidth(1e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(ids_of(family("ifthrough")->children).size(), 2U);
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_english \"Bytes ohne Namen\": error from "
                                         "PdhLookupPerfIndexByName"));
}

TEST_F(scan_interfaces, offers_nothing_without_an_interface) {
    counters.objects[0].second.instances.clear();
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_interfaces, asks_at_the_level_of_the_settings_for_the_national_object) {
    counters.config.perf_cnt_level = 400;
    set_bandwidth(1e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(counters.enumerated, (names{"Netzwerk", "Netzwerk"}));
    EXPECT_EQ(counters.details, (std::vector<uint32_t>{400, 400}));
}

TEST_F(scan_interfaces, words_each_failure_of_the_enumeration) {
    counters.item_statuses = {PDH_CSTATUS_NO_OBJECT};
    EXPECT_FAILURE(scan_ifthroughput(&root),
                   "Couldn't enumerate Network Interface objects: system error 3221228472");
    EXPECT_TRUE(host.logged(LOG_TRACE, "PDH enumeration returned error -1073738824"));
    counters.item_statuses = {PDH_MORE_DATA, PDH_INVALID_ARGUMENT};
    EXPECT_FAILURE(scan_ifthroughput(&root), "Got an error from PdhEnumObjectItems: system error 3221228477");
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_interfaces, goes_on_where_the_sizing_call_succeeds) {
    counters.item_statuses = {PDH_OK};
    set_bandwidth(1e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_NE(root.children, nullptr);
}

TEST_F(scan_interfaces, tells_when_memory_is_out) {
    set_bandwidth(1e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root)); // the table of names is there from now on
    host.fail_allocation = 1;
    EXPECT_FAILURE(scan_ifthroughput(&root), "Out of memory for counters in scan_ifthrough");
    host.fail_allocation = 2;
    EXPECT_FAILURE(scan_ifthroughput(&root), "Out of memoty for instances in scan_ifthrough");
    devtree other = {};
    host.fail_allocation = 3;
    EXPECT_FAILURE(scan_ifthroughput(&other), "Couldn't allocate devtree_child mem");
    free_devtree(other.children);
}

TEST_F(scan_interfaces, survives_lists_that_have_no_end) {
    // One byte less than the list takes, so that the host writes nothing, and no end either.
    counters.item_statuses = {PDH_MORE_DATA, PDH_OK};
    counters.objects[0].second.instances = {std::string(100, 'x'), "\"quoted\" \xFC"};
    set_bandwidth(1e6);
    EXPECT_SUCCESS(scan_ifthroughput(&root));
    EXPECT_EQ(groups_of(family("ifthrough")), (names{std::string(100, 'x'), "\"quoted\" \xFC"}));
}

TEST_F(scan_interfaces, fails_where_the_object_has_no_name) {
    counters.table.clear();
    EXPECT_FAILURE(scan_ifthroughput(&root),
                   "Couldn't enumerate Network Interface objects: system error 3221228472");
    EXPECT_EQ(counters.enumerated, names{""});
}

TEST_F(check_interface, gives_kilobytes_for_bytes_alone) {
    counters.values = {{0, 2560.0}};
    EXPECT_SUCCESS(check("Bytes Received/sec"));
    EXPECT_EQ(result.real_value, 2.5);
    EXPECT_EQ(result.value, 3);
    EXPECT_EQ(counters.added, names{"\\Netzwerk(WLAN)\\Empfangene Bytes/s"});
    EXPECT_TRUE(
        host.logged(LOG_TRACE, "About to get IF counter \"Bytes Received/sec\" on interface \"WLAN\""));
    free_counter_state(device);
    clear_state(device);
    counters.values = {{0, 2560.4}};
    EXPECT_SUCCESS(check("Packets/sec"));
    EXPECT_EQ(result.real_value, 2560.4);
    EXPECT_EQ(result.value, 2560);
}

TEST_F(check_interface, takes_bytes_anywhere_in_a_name_for_bytes) {
    counters.add(950, "Queued Bytes/sec", "Wartende Bytes/s");
    counters.paths.insert("\\Netzwerk(WLAN)\\Wartende Bytes/s");
    counters.values = {{0, 2560.0}};
    EXPECT_SUCCESS(check("Queued Bytes/sec"));
    EXPECT_EQ(result.real_value, 2.5);
}

TEST_F(check_interface, opens_its_counter_once) {
    EXPECT_SUCCESS(check("Packets/sec"));
    EXPECT_SUCCESS(check("Packets/sec"));
    EXPECT_EQ(counters.added.size(), 1U);
    EXPECT_EQ(device->state_magic, COUNTER_STATE_MAGIC);
}

TEST_F(check_interface, tells_of_a_counter_that_is_not_there) {
    counters.closed = {"\\Netzwerk(WLAN)\\Pakete/s"};
    EXPECT_FAILURE(check("Packets/sec"), "Cannot locate counter \"Packets/sec\" in check_ifthrough");
    EXPECT_TRUE(
        host.logged(LOG_WARNING,
                    "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\Netzwerk(WLAN)\\Pakete/s\" to query"));
    counters.closed.clear();
    EXPECT_SUCCESS(check("Packets/sec"));
}

TEST_F(check_interface, keeps_its_counter_over_a_failure) {
    counters.values = {{PDH_INVALID_ARGUMENT, 0}};
    EXPECT_FAILURE(check("Packets/sec"),
                   "Could not get counter value for check_ifthrough: Got INVALID_ARGUMENT from "
                   "GetFormattedCounterValue() in get_counter_value()");
    EXPECT_NE(device->state, nullptr);
    EXPECT_EQ(result.real_value, 0) << "a failed check leaves its result";
}

TEST_F(check_interface, makes_a_new_counter_behind_one_without_data) {
    counters.collect_statuses = {PDH_NO_DATA};
    EXPECT_FAILURE(check("Packets/sec"),
                   "Could not get counter value for check_ifthrough: Couldn't collect query data for "
                   "\\Netzwerk(WLAN)\\Pakete/s: The query does not currently contain any counters.");
    EXPECT_EQ(device->state, nullptr);
    EXPECT_SUCCESS(check("Packets/sec"));
    EXPECT_EQ(counters.added.size(), 2U);
}
