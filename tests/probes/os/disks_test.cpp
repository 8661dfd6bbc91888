#include "probes/os/disks.h"

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

struct metric_row {
    const char *id, *name, *unit, *counter;
};

constexpr metric_row METRICS[] = {
    {"read_io", "Read operations", "/s", "Disk Reads/sec"},
    {"read_bytes", "Read bytes", "B/s", "Disk Read Bytes/sec"},
    {"read_queue_length", "Read queue length", "", "Avg. Disk Read Queue Length"},
    {"write_io", "Write operations", "/s", "Disk Writes/sec"},
    {"write_bytes", "Written bytes", "B/s", "Disk Write Bytes/sec"},
    {"write_queue_length", "Write queue length", "", "Avg. Disk Write Queue Length"},
    {"idle", "Idle time", "1%", "% Idle Time"},
    {"total_queue_length", "Total queue length", "", "Avg. Disk Queue Length"},
    {"pct_read", "Read activity", "1%", "% Disk Read Time"},
    {"pct_write", "Write activity", "1%", "% Disk Write Time"},
    {"sec_read", "Time per read operation", "s", "Avg. Disk sec/Read"},
    {"sec_write", "Time per write operation", "s", "Avg. Disk sec/Write"},
    {"split_io", "Split IO operations", "/s", "Split IO/Sec"},
};

struct disk_fixture : testing::Test {
    test_host host;
    scripted_counters counters;

    disk_fixture() {
        counters.add(234, "PhysicalDisk", "Disk");
        counters.objects = {{"Disk", {.counters = {}, .instances = {"0 C: D:", "1", "12 E:", "_Total"}}}};
        uint32_t index = 300;
        for (const metric_row &metric : METRICS) {
            counters.add(index++, metric.counter, std::string("de ") + metric.counter);
            counters.objects[0].second.counters.push_back(std::string("de ") + metric.counter);
        }
    }
    void set_instances(const names &instances) { counters.objects[0].second.instances = instances; }
};

struct scan_disks : disk_fixture {
    devtree root = {};
    ~scan_disks() override { free_devtree(root.children); }
    const devtree *physical() const { return root.children->children; }
    names disk_names() const {
        names found;
        for (const devtree *disk = physical()->children; disk != nullptr; disk = disk->next)
            found.push_back(std::string(disk->id) + "=" + disk->name);
        return found;
    }
};

struct check_disk : disk_fixture {
    devtree family = {};
    devtree disk = {};
    devnode *device = alloc_devnode();
    resnode result = {};
    check_disk() {
        disk.id = text_copy("12");
        disk.parent = &family;
        device->parent = &disk;
    }
    ~check_disk() override {
        free_devnode(device);
        heap_free(disk.id);
    }
    const char *check(const char *id) {
        text_replace(&device->id, text_copy(id));
        return check_block(device, &result);
    }
};

} // namespace

TEST_F(scan_disks, offers_disks_with_a_letter_alone) {
    EXPECT_SUCCESS(scan_block_devices(&root));
    EXPECT_EQ(disk_names(), (names{"0=Physical Disk 0 (C:)", "12=Physical Disk 12 (E:)"}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Found device 0 C: D: of type physical"));
    EXPECT_EQ(host.count_logged("Found device"), 2);
}

TEST_F(scan_disks, puts_them_into_two_groups) {
    EXPECT_SUCCESS(scan_block_devices(&root));
    const devtree *block = root.children;
    EXPECT_EQ(block->next, nullptr);
    EXPECT_STREQ(block->id, "block");
    EXPECT_STREQ(block->name, "Block Devices");
    note_text("Block Devices");
    EXPECT_STREQ(block->name_template, "%0r for %1r");
    EXPECT_EQ(block->group_flags, 0U);
    EXPECT_EQ(block->devices, nullptr);
    EXPECT_STREQ(physical()->id, "physical");
    EXPECT_STREQ(physical()->name, "Physical Devices");
    note_text("Physical Devices");
    EXPECT_EQ(physical()->next, nullptr);
    EXPECT_EQ(physical()->name_template, nullptr);
    EXPECT_EQ(physical()->children->group_flags, 0U);
}

TEST_F(scan_disks, gives_each_disk_thirteen_devices_the_last_one_first) {
    EXPECT_SUCCESS(scan_block_devices(&root));
    const devnode *device = physical()->children->devices;
    for (size_t i = std::size(METRICS); i-- > 0; device = device->next) {
        const metric_row &row = METRICS[i];
        ASSERT_NE(device, nullptr);
        EXPECT_STREQ(device->id, row.id);
        EXPECT_STREQ(device->name, row.name);
        note_text(row.name);
        EXPECT_STREQ(device->comment, "");
        EXPECT_STREQ(device->unit, row.unit);
        EXPECT_EQ(device->type, TYPE_REAL_CONTINUOUS);
        EXPECT_EQ(device->description, 21U);
        EXPECT_EQ(device->limits.hint.hint_present, 1U);
        EXPECT_EQ(device->limits.hint.hint_min, 0);
        EXPECT_FALSE(std::isfinite(device->limits.hint.hint_value));
        if (text_equal(row.unit, "1%"))
            EXPECT_EQ(device->limits.hint.hint_max, 100.0) << row.id;
        else
            EXPECT_FALSE(std::isfinite(device->limits.hint.hint_max)) << row.id;
    }
    EXPECT_EQ(device, nullptr);
}

TEST_F(scan_disks, reads_a_number_and_a_word) {
    set_instances({"7C:", "  8 \t F: G:", "-3 H:", "+4 I:", "x 5:", "", "9 ", "C: 1", "_Total", "10  J:"});
    EXPECT_SUCCESS(scan_block_devices(&root));
    EXPECT_EQ(disk_names(), (names{"7=Physical Disk 7 (C:)", "8=Physical Disk 8 (F:)",
                                   "-3=Physical Disk -3 (H:)", "4=Physical Disk 4 (I:)"}))
        << "an empty name ends the list";
}

TEST_F(scan_disks, survives_long_and_odd_names) {
    set_instances({"1 " + std::string(1000, 'x'), "2 \"a\xFC\"", "99999999999999999999 C:"});
    EXPECT_SUCCESS(scan_block_devices(&root));
    names found = disk_names();
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0], "1=Physical Disk 1 (" + std::string(511, 'x') + ")");
    EXPECT_EQ(found[1], "2=Physical Disk 2 (\"a\xFC\")");
}

TEST_F(scan_disks, offers_nothing_without_a_disk) {
    set_instances({"0", "_Total"});
    EXPECT_SUCCESS(scan_block_devices(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_disks, words_each_failure_of_the_enumeration) {
    counters.item_statuses = {5};
    EXPECT_FAILURE(scan_block_devices(&root), "Couldn't enumerate PhysicalDisk objects: system error 5");
    EXPECT_TRUE(host.logged(LOG_TRACE, "PDH enumeration returned error 5"));
    counters.item_statuses = {PDH_OK, 6};
    EXPECT_FAILURE(scan_block_devices(&root), "Got an error from PdhEnumObjectItems: system error 6");
}

TEST_F(scan_disks, tells_when_memory_is_out) {
    EXPECT_SUCCESS(scan_block_devices(&root));
    host.fail_allocation = 1;
    EXPECT_FAILURE(scan_block_devices(&root), "Out of memory for counters in scan_block_devices");
    host.fail_allocation = 2;
    EXPECT_FAILURE(scan_block_devices(&root), "Out of memory for instances in scan_block_devices");
    for (uint32_t n : {3U, 6U}) {
        devtree other = {};
        host.fail_allocation = n;
        EXPECT_FAILURE(scan_block_devices(&other), "Couldn't allocate devtree_child mem");
        free_devtree(other.children);
    }
}

TEST_F(scan_disks, finds_the_instance_of_a_number) {
    char instance[DISK_INSTANCE_SIZE] = "untouched";
    EXPECT_SUCCESS(scan_block_devices(nullptr, "0", instance));
    EXPECT_STREQ(instance, "0 C: D:");
    EXPECT_EQ(host.count_logged("Found device"), 0);
    EXPECT_SUCCESS(scan_block_devices(nullptr, "3", instance));
    EXPECT_STREQ(instance, "0 C: D:") << "no such disk";
    EXPECT_SUCCESS(scan_block_devices(nullptr, "1", instance));
    EXPECT_STREQ(instance, "0 C: D:") << "a disk without a letter";
}

TEST_F(scan_disks, cuts_the_name_of_an_instance) {
    char instance[DISK_INSTANCE_SIZE];
    set_instances({"5 " + std::string(1000, 'x')});
    EXPECT_SUCCESS(scan_block_devices(nullptr, "5", instance));
    EXPECT_EQ(std::string(instance), "5 " + std::string(DISK_INSTANCE_SIZE - 3, 'x'));
}

TEST_F(scan_disks, does_nothing_for_what_is_no_number) {
    char instance[DISK_INSTANCE_SIZE] = "untouched";
    for (const char *number : {"", "x", "-", " "})
        EXPECT_SUCCESS(scan_block_devices(nullptr, number, instance));
    EXPECT_STREQ(instance, "untouched");
    EXPECT_TRUE(counters.enumerated.empty());
}

TEST_F(check_disk, reads_the_counter_of_each_metric) {
    for (const metric_row &metric : METRICS) {
        counters.added.clear();
        counters.values = {{0, 7.5}};
        EXPECT_SUCCESS(check(metric.id));
        EXPECT_EQ(counters.added, names{std::string("\\Disk(12 E:)\\de ") + metric.counter});
        EXPECT_TRUE(host.logged(LOG_TRACE, std::string("About to get PhysicalDisk counter \"") +
                                               metric.counter + "\" on device \"12\""));
        EXPECT_EQ(result.real_value, 7.5);
        EXPECT_EQ(result.value, 8);
        free_counter_state(device);
        clear_state(device);
    }
}

TEST_F(check_disk, leaves_the_result_empty_for_an_unknown_id) {
    EXPECT_SUCCESS(check("reads"));
    EXPECT_SUCCESS(check("READ_IO"));
    EXPECT_EQ(result.real_value, 0);
    EXPECT_EQ(result.value, 0);
    EXPECT_TRUE(counters.enumerated.empty());
    EXPECT_EQ(host.count_logged("About to get"), 0);
}

TEST_F(check_disk, looks_for_its_instance_once) {
    EXPECT_SUCCESS(check("idle"));
    EXPECT_SUCCESS(check("idle"));
    EXPECT_EQ(counters.added.size(), 1U);
    EXPECT_EQ(counters.enumerated.size(), 2U) << "sizes and lists";
}

TEST_F(check_disk, survives_a_change_of_the_letters) {
    set_instances({"12 Q: R:"});
    EXPECT_SUCCESS(check("idle"));
    EXPECT_EQ(counters.added, names{"\\Disk(12 Q: R:)\\de % Idle Time"});
}

TEST_F(check_disk, tells_of_a_disk_that_has_gone_and_tries_again) {
    set_instances({"0 C:"});
    counters.closed = {"\\Disk()\\de % Idle Time"};
    EXPECT_FAILURE(check("idle"), "Could not get performance counter \"% Idle Time\" for physical disk 12");
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\Disk()\\de % Idle Time\" to query"));
    set_instances({"12 E:"});
    EXPECT_SUCCESS(check("idle"));
}

TEST_F(check_disk, passes_on_why_disks_cannot_be_listed) {
    counters.item_statuses = {5};
    EXPECT_FAILURE(check("idle"), "Couldn't enumerate PhysicalDisk objects: system error 5");
}

TEST_F(check_disk, tells_why_there_is_no_value) {
    counters.values = {{PDH_INVALID_HANDLE, 0}};
    EXPECT_FAILURE(check("idle"),
                   "Could not get counter value for check_block-device: Get INVALID_HANDLE from "
                   "GetFormattedCounterValue() in get_counter_value()");
    EXPECT_NE(device->state, nullptr);
}

TEST_F(check_disk, makes_a_new_counter_behind_one_without_data) {
    counters.collect_statuses = {PDH_NO_DATA};
    EXPECT_FAILURE(check("idle"),
                   "Could not get counter value for check_block-device: Couldn't collect query data for "
                   "\\Disk(12 E:)\\de % Idle Time: The query does not currently contain any counters.");
    EXPECT_EQ(device->state, nullptr);
    EXPECT_SUCCESS(check("idle"));
}
