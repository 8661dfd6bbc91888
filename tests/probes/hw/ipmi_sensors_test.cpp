#include "probes/hw/ipmi_sensors.h"

#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/hw/chassis_status.h"
#include "probes/hw/ipmi_fixture.h"

#include <cstring>
#include <functional>

namespace {

constexpr std::pair<uint8_t, uint8_t> DEVICE_ID = {6, 1};
constexpr std::pair<uint8_t, uint8_t> CHASSIS = {0, 1};

struct scan_fixture : ipmi_fixture {
    devtree root = {};

    // A repository is never empty: it describes its own controller.
    scan_fixture() { bmc.add({.type = 18}); }
    ~scan_fixture() override {
        free_devtree(root.children);
        root.children = nullptr;
        free_sensor_records();
        release_bmcs();
        EXPECT_EQ(host.blocks, 0);
    }
    const char *scan() {
        free_devtree(root.children);
        root.children = nullptr;
        return scan_ipmi_sensors(&root);
    }
    // The group by the ids of the groups above it, absent where there is none.
    devtree *group(const std::vector<std::string> &ids) {
        devtree *found = &root;
        for (const std::string &id : ids) {
            devtree *child = found->children;
            while (child != nullptr && child->id != id)
                child = child->next;
            if (child == nullptr) return nullptr;
            found = child;
        }
        return found;
    }
    devnode *device(const std::vector<std::string> &ids, const std::string &id) {
        devtree *found = group(ids);
        devnode *device = found != nullptr ? found->devices : nullptr;
        while (device != nullptr && device->id != id)
            device = device->next;
        return device;
    }
    devnode *sensor(const std::string &id) { return device({"ipmisens", "E07", "I01", "S01"}, id); }
    void add_sensor(const sdr_words &words, const std::vector<uint8_t> &reading) {
        bmc.add(words);
        bmc.readings[words.number] = {reading};
    }
};

using scan_ipmi_sensors_test = scan_fixture;
using check_ipmi_sensor_test = scan_fixture;
using check_chassis_status_test = scan_fixture;

struct record_words : testing::Test {
    test_host host;
    sensor_record record = {.sensor_number = 0x31, .numeric_format = 0, .description = "CPU"};

    std::string unit() {
        char text[UNIT_SIZE];
        format_sensor_unit(&record, text);
        return text;
    }
};

using format_sensor_unit_test = record_words;
using make_sensor_device_test = record_words;

const std::vector<uint8_t> PLAIN = {0, 20, 0xC0, 0};

} // namespace

// ---- units

TEST_F(format_sensor_unit_test, follows_the_modifier) {
    record.base_unit = 18;
    record.modifier_unit = 19;
    EXPECT_EQ(unit(), "RPM");
    record.unit_modifier = 1;
    EXPECT_EQ(unit(), "RPM/Hz");
    record.unit_modifier = 2;
    EXPECT_EQ(unit(), "RPMHz");
    record.unit_modifier = 3;
    EXPECT_EQ(unit(), "");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Unknown unit for sensor 49"));
    record.unit_modifier = 4;
    EXPECT_EQ(unit(), "");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Unknown unit combination 4 for sensor 49"));
}

TEST_F(format_sensor_unit_test, is_a_percentage_whatever_the_units_say) {
    record.percentage = true;
    for (uint32_t modifier = 0; modifier < 4; modifier++) {
        record.base_unit = 1;
        record.unit_modifier = modifier;
        EXPECT_EQ(unit(), "1%");
    }
}

TEST_F(format_sensor_unit_test, is_empty_for_a_digital_sensor) {
    record.base_unit = 1;
    record.percentage = true;
    record.reading_type = READING_DIGITAL;
    EXPECT_EQ(unit(), "");
}

TEST_F(format_sensor_unit_test, names_units_that_have_no_name_by_their_number) {
    record.base_unit = 93;
    record.modifier_unit = 255;
    EXPECT_EQ(unit(), "Unknown sensor unit: 93");
    record.unit_modifier = 1;
    EXPECT_EQ(unit(), "Unknown sensor unit: 93/Unknown sensor unit: 255");
}

// ---- devices

TEST_F(make_sensor_device_test, makes_an_analog_one) {
    record.lun = 2;
    record.base_unit = 1;
    devnode_guard device(make_sensor_device(&record));
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(device->id, "02:31");
    EXPECT_STREQ(device->name, "CPU (Analog)");
    EXPECT_EQ(device->comment, nullptr);
    EXPECT_STREQ(device->unit, "C");
    EXPECT_EQ(device->type, 7U);
    EXPECT_EQ(device->description, 21U);
    EXPECT_EQ(device->limits.hint.hint_present, 0U);
}

TEST_F(make_sensor_device_test, makes_a_digital_one) {
    record.numeric_format = FORMAT_NONE;
    record.reading_type = 3;
    record.sensor_number = 0xAB;
    record.base_unit = 1;
    devnode_guard device(make_sensor_device(&record));
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(device->id, "00:AB:03");
    EXPECT_STREQ(device->name, "CPU (Discrete State)");
    EXPECT_STREQ(device->unit, "");
    EXPECT_EQ(device->type, 3U);
    EXPECT_EQ(device->description, 21U);
}

TEST_F(make_sensor_device_test, makes_a_drive_bay) {
    record.numeric_format = FORMAT_NONE;
    record.reading_type = 0x6F;
    record.sensor_type = 13;
    record.entity_id = 4;
    devnode_guard device(make_sensor_device(&record));
    ASSERT_NE(device, nullptr);
    EXPECT_STREQ(device->id, "00:31:6F");
    EXPECT_STREQ(device->name, "CPU (Drive Bay State)");
    EXPECT_EQ(device->type, 10U);
    EXPECT_EQ(device->description, 24U);
}

TEST_F(make_sensor_device_test, leaves_other_sensors_out) {
    record.numeric_format = FORMAT_NONE;
    record.reading_type = 0x6F;
    record.sensor_type = 8;
    record.entity_id = 4;
    EXPECT_EQ(make_sensor_device(&record), nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, " Unsupported IPMI sensor: CPU"));
    record.sensor_type = 13;
    record.entity_id = 10;
    EXPECT_EQ(make_sensor_device(&record), nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, " Non-disk found in drive bay: CPU"));
    record.entity_id = 4;
    record.reading_type = 8;
    EXPECT_EQ(make_sensor_device(&record), nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, " EI_Disk not SR_SensorSpecific but 8: CPU"));
    EXPECT_EQ(host.log.size(), 3U);
}

TEST_F(make_sensor_device_test, takes_a_digital_drive_bay_for_a_digital_sensor) {
    record.numeric_format = FORMAT_NONE;
    record.reading_type = 3;
    record.sensor_type = 13;
    record.entity_id = 4;
    devnode_guard device(make_sensor_device(&record));
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->type, 3U);
}

TEST_F(make_sensor_device_test, names_a_sensor_without_description_by_its_type_and_number) {
    record.description[0] = '\0';
    record.sensor_type = 1;
    devnode_guard named(make_sensor_device(&record));
    EXPECT_STREQ(named->name, "Temperature 49 (Analog)");
    record.sensor_type = 200;
    devnode_guard unknown(make_sensor_device(&record));
    EXPECT_STREQ(unknown->name, "Unknown sensor type: 200 49 (Analog)");
}

// ---- the scan

TEST_F(scan_ipmi_sensors_test, builds_entity_instance_and_type_above_a_sensor) {
    add_sensor({.number = 0x31, .entity = 3, .instance = 12, .sensor_type = 2, .base_unit = 4, .text = "CPU"},
               PLAIN);
    EXPECT_SUCCESS(scan());
    devtree *top = group({"ipmisens"});
    ASSERT_NE(top, nullptr);
    EXPECT_STREQ(top->name, "IPMI Sensors");
    EXPECT_STREQ(top->name_template, "%0r for %3r %2r");
    EXPECT_EQ(top->group_flags, 0U);
    devtree *entity = group({"ipmisens", "E03"});
    ASSERT_NE(entity, nullptr);
    EXPECT_STREQ(entity->name, "Processor");
    EXPECT_EQ(entity->group_flags, 1U);
    devtree *instance = group({"ipmisens", "E03", "I0C"});
    ASSERT_NE(instance, nullptr);
    EXPECT_STREQ(instance->name, "12");
    EXPECT_EQ(instance->group_flags, 0U);
    devtree *type = group({"ipmisens", "E03", "I0C", "S02"});
    ASSERT_NE(type, nullptr);
    EXPECT_STREQ(type->name, "Voltage sensors");
    EXPECT_EQ(type->group_flags, 1U);
    ASSERT_NE(type->devices, nullptr);
    EXPECT_STREQ(type->devices->id, "00:31");
    EXPECT_STREQ(type->devices->unit, "V");
    EXPECT_EQ(type->devices->next, nullptr);
}

TEST_F(scan_ipmi_sensors_test, names_unknown_entities_and_types_by_their_numbers) {
    add_sensor({.number = 1, .entity = 200, .instance = 127, .sensor_type = 99}, PLAIN);
    EXPECT_SUCCESS(scan());
    ASSERT_NE(device({"ipmisens", "EC8", "I7F", "S63"}, "00:01"), nullptr);
    EXPECT_STREQ(group({"ipmisens", "EC8"})->name, "Unknown entity id: 200");
    EXPECT_STREQ(group({"ipmisens", "EC8", "I7F", "S63"})->name, "Unknown sensor type: 99 sensors");
}

TEST_F(scan_ipmi_sensors_test, shares_the_groups_of_like_sensors) {
    for (uint8_t number : {uint8_t{1}, uint8_t{2}, uint8_t{3}})
        add_sensor({.number = number}, PLAIN);
    EXPECT_SUCCESS(scan());
    devtree *type = group({"ipmisens", "E07", "I01", "S01"});
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->next, nullptr);
    EXPECT_EQ(devtree_count_checks(type), 3U);
}

TEST_F(scan_ipmi_sensors_test, identifies_the_bmc) {
    bmc.device_id = {0, 0x2A, 0, 0, 0, 0x51};
    EXPECT_SUCCESS(scan());
    EXPECT_TRUE(host.logged(LOG_NORMAL, "IPMI BMC has ID 42, provides ipmi version 1.5"));
}

TEST_F(scan_ipmi_sensors_test, logs_what_it_uses) {
    add_sensor({.lun = 1, .number = 0x31, .text = "CPU"}, PLAIN);
    EXPECT_SUCCESS(scan());
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sensor 0x31 (lun 1) \"CPU\" has format 0 - will use"));
}

TEST_F(scan_ipmi_sensors_test, leaves_out_a_sensor_that_cannot_be_read) {
    add_sensor({.number = 0x31, .text = "CPU"}, {0xCB});
    add_sensor({.number = 0x32, .text = "Fan"}, PLAIN);
    EXPECT_SUCCESS(scan());
    EXPECT_TRUE(host.logged(
        LOG_DETAIL, "Skipping sensor 0x31 (lun 0) \"CPU\" with format 0, due to read error: Error reading "
                    "sensor CPU: Requested Sensor, data, or record not present (203)"));
    EXPECT_EQ(sensor("00:31"), nullptr);
    EXPECT_NE(sensor("00:32"), nullptr);
    EXPECT_NE(find_sensor_record(0, 0x31), nullptr) << "its record stays";
}

TEST_F(scan_ipmi_sensors_test, makes_no_groups_for_sensors_that_are_left_out) {
    add_sensor({.type = 2, .number = 1, .sensor_type = 8}, PLAIN);
    add_sensor({.number = 2}, {0xCB});
    EXPECT_SUCCESS(scan());
    EXPECT_EQ(group({"ipmisens", "E07"}), nullptr);
    EXPECT_EQ(bmc.count(4, 0x2D), 1) << "an unsupported sensor is not read";
}

TEST_F(scan_ipmi_sensors_test, offers_a_drive_bay_of_a_disk_and_of_nothing_else) {
    const std::vector<uint8_t> bay = {0, 0, 0xC0, 1, 0};
    add_sensor({.type = 2, .number = 1, .entity = 4, .sensor_type = 13, .reading_type = 0x6F}, bay);
    add_sensor({.type = 2, .number = 2, .entity = 10, .sensor_type = 13, .reading_type = 0x6F}, bay);
    EXPECT_SUCCESS(scan());
    EXPECT_NE(device({"ipmisens", "E04", "I01", "S0D"}, "00:01:6F"), nullptr);
    EXPECT_EQ(group({"ipmisens", "E0A"}), nullptr);
}

TEST_F(scan_ipmi_sensors_test, offers_sensors_of_unread_texts_under_one_name) {
    for (uint8_t number : {uint8_t{1}, uint8_t{2}})
        add_sensor({.number = number, .text_kind = 0, .text = "ab"}, PLAIN);
    EXPECT_SUCCESS(scan());
    ASSERT_NE(sensor("00:01"), nullptr);
    ASSERT_NE(sensor("00:02"), nullptr);
    EXPECT_STREQ(sensor("00:01")->name, "[UNICODE] (Analog)");
    EXPECT_STREQ(sensor("00:02")->name, "[UNICODE] (Analog)");
}

TEST_F(scan_ipmi_sensors_test, offers_five_faults_of_the_chassis) {
    EXPECT_SUCCESS(scan());
    devtree *chassis = group({"ipmisens", "chassisstatus"});
    ASSERT_NE(chassis, nullptr);
    EXPECT_STREQ(chassis->name, "ChassisStatus");
    EXPECT_STREQ(chassis->name_template, "%0r");
    EXPECT_EQ(chassis->group_flags, 0U);
    const std::pair<const char *, const char *> faults[] = {
        {"poweroverload", "Power Overload"},          {"mainpowerfault", "Main Power Fault"},
        {"powercontrolfault", "Power Control Fault"}, {"drivefault", "Drive Fault"},
        {"coolingfault", "Cooling/Fan Fault"},
    };
    const devnode *found = chassis->devices;
    for (auto [id, name] : faults) {
        ASSERT_NE(found, nullptr);
        EXPECT_STREQ(found->id, id);
        EXPECT_STREQ(found->name, name);
        EXPECT_STREQ(found->comment, name);
        EXPECT_STREQ(found->unit, "");
        EXPECT_EQ(found->type, 3U);
        EXPECT_EQ(found->description, 21U);
        found = found->next;
    }
    EXPECT_EQ(found, nullptr);
}

TEST_F(scan_ipmi_sensors_test, goes_on_without_the_chassis) {
    const std::pair<std::vector<uint8_t>, const char *> replies[] = {
        {{0xC1}, "Get Chassis Status return ccode 193"},
        {{0, 0x21, 0}, "Get Chassis Status: got too few data"},
    };
    add_sensor({.number = 1}, PLAIN);
    for (const auto &[reply, text] : replies) {
        bmc.scripted[CHASSIS] = {reply};
        EXPECT_SUCCESS(scan());
        EXPECT_TRUE(host.logged(LOG_NORMAL, text));
        EXPECT_EQ(group({"ipmisens", "chassisstatus"}), nullptr);
        EXPECT_NE(sensor("00:01"), nullptr);
    }
    channel.statuses["ExecMethod"] = {0, 0x80041001};
    EXPECT_SUCCESS(scan());
    EXPECT_TRUE(
        host.logged(LOG_NORMAL, "Get Chassis Status failed: Unable to execute method: General failure"));
    EXPECT_EQ(group({"ipmisens", "chassisstatus"}), nullptr);
    EXPECT_NE(sensor("00:01"), nullptr);
}

TEST_F(scan_ipmi_sensors_test, goes_on_without_a_response_about_the_chassis) {
    come_up();
    devtree group = {};
    channel.gives_outputs = false;
    EXPECT_SUCCESS(scan_chassis_status(&group));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Get Chassis Status: didn't return a response"));
    EXPECT_EQ(group.children, nullptr);
}

TEST_F(scan_ipmi_sensors_test, takes_three_bytes_about_the_chassis) {
    bmc.chassis = {0, 0, 0, 0};
    EXPECT_SUCCESS(scan());
    EXPECT_NE(group({"ipmisens", "chassisstatus"}), nullptr);
}

TEST_F(scan_ipmi_sensors_test, fails_where_there_is_no_interface) {
    channel.class_namespaces.clear();
    EXPECT_FAILURE(scan(), "No IPMI interface found");
    EXPECT_EQ(root.children, nullptr);
    channel.class_namespaces = {"ROOT\\WMI"};
    EXPECT_SUCCESS(scan()) << "the next scan tries from the beginning";
}

TEST_F(scan_ipmi_sensors_test, has_nothing_to_look_at_where_an_open_channel_has_no_bmcs) {
    come_up();
    release_bmcs();
    EXPECT_FAILURE(scan(), "Nothing to look at");
}

TEST_F(scan_ipmi_sensors_test, asks_nobody_where_no_bmc_is_active) {
    come_up();
    active_bmc_count = 0;
    EXPECT_SUCCESS(scan());
    EXPECT_EQ(root.children, nullptr);
    EXPECT_TRUE(bmc.asked.empty());
    active_bmc_count = 1;
}

TEST_F(scan_ipmi_sensors_test, fails_where_the_bmc_does_not_say_what_it_is) {
    const std::pair<std::vector<uint8_t>, const char *> replies[] = {
        {{0xC0}, "Scan of BMC return ccode 192"},
        {{0, 1, 2, 3, 4}, "Got too few data"},
    };
    for (const auto &[reply, text] : replies) {
        bmc.scripted[DEVICE_ID] = {reply};
        EXPECT_FAILURE(scan(), text);
        ASSERT_NE(group({"ipmisens"}), nullptr) << "the group is there by then";
        EXPECT_EQ(group({"ipmisens"})->children, nullptr);
    }
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(scan(), "Unable to execute method: RPC link failure");
    channel.gives_outputs = false;
    EXPECT_FAILURE(scan(), "Scan of BMC didn't return a response");
}

TEST_F(scan_ipmi_sensors_test, takes_five_bytes_about_the_bmc) {
    bmc.device_id = {0, 1, 2, 3, 4, 2};
    EXPECT_SUCCESS(scan());
    EXPECT_TRUE(host.logged(LOG_NORMAL, "IPMI BMC has ID 1, provides ipmi version 2.0"));
}

TEST_F(scan_ipmi_sensors_test, fails_with_its_repository_and_offers_no_sensors) {
    add_sensor({.number = 1}, PLAIN);
    bmc.records[0].next = 9;
    EXPECT_FAILURE(scan(), "Unexpected error reading SDR");
    EXPECT_EQ(group({"ipmisens", "E07"}), nullptr);
    EXPECT_NE(group({"ipmisens", "chassisstatus"}), nullptr);
}

TEST_F(scan_ipmi_sensors_test, offers_the_chassis_alone_where_the_repository_is_empty) {
    bmc.records.clear();
    EXPECT_FAILURE(scan(), "Unexpected error reading SDR");
    EXPECT_EQ(devtree_count_checks(root.children), 5U);
}

TEST_F(scan_ipmi_sensors_test, forgets_the_sensors_of_the_scan_before) {
    add_sensor({.number = 1}, PLAIN);
    EXPECT_SUCCESS(scan());
    bmc.records.clear();
    add_sensor({.number = 2}, PLAIN);
    EXPECT_SUCCESS(scan());
    EXPECT_EQ(find_sensor_record(0, 1), nullptr);
    EXPECT_NE(find_sensor_record(0, 2), nullptr);
    channel.statuses["ExecMethod"] = {0x80041001};
    EXPECT_FAILURE(scan(), "Unable to execute method: General failure");
    EXPECT_EQ(sensor_records, nullptr) << "even where it then fails";
}

TEST_F(scan_ipmi_sensors_test, survives_a_restart_of_the_service_at_any_command) {
    for (uint8_t number : {uint8_t{1}, uint8_t{2}})
        add_sensor({.number = number}, PLAIN);
    EXPECT_SUCCESS(scan());
    channel.steps.clear();
    EXPECT_SUCCESS(scan()); // the reservation is held by now
    int commands = channel.count("ExecMethod");
    for (int n = 0; n < commands; n++) {
        channel.statuses["ExecMethod"].assign(static_cast<size_t>(n), 0);
        channel.statuses["ExecMethod"].push_back(0x80041033);
        scan();
        EXPECT_EQ(channel.objects, 2) << n;
        channel.statuses.clear();
        EXPECT_SUCCESS(scan());
        EXPECT_EQ(devtree_count_checks(root.children), 7U);
    }
}

TEST_F(scan_ipmi_sensors_test, survives_a_restart_that_ends_the_channel_at_any_command) {
    for (uint8_t number : {uint8_t{1}, uint8_t{2}})
        add_sensor({.number = number}, PLAIN);
    EXPECT_SUCCESS(scan());
    channel.steps.clear();
    EXPECT_SUCCESS(scan()); // the reservation is held by now
    int commands = channel.count("ExecMethod");
    for (int n = 0; n < commands; n++) {
        channel.statuses["ExecMethod"].assign(static_cast<size_t>(n), 0);
        channel.statuses["ExecMethod"].push_back(0x80041033);
        channel.class_namespaces.clear();
        scan();
        EXPECT_EQ(active_bmcs, nullptr);
        EXPECT_EQ(channel.objects, 0) << n;
        channel.statuses.clear();
        channel.class_namespaces = {"ROOT\\WMI"};
        EXPECT_SUCCESS(scan());
    }
}

TEST_F(scan_ipmi_sensors_test, gives_up_cleanly_whichever_block_is_refused) {
    add_sensor({.number = 1}, PLAIN);
    EXPECT_SUCCESS(scan());
    for (uint32_t n = 1;; n++) {
        free_devtree(root.children);
        root.children = nullptr;
        host.fail_allocation = n;
        try {
            const char *failure = scan_ipmi_sensors(&root);
            if (host.fail_allocation != 0) break; // there is no n-th block
            if (failure != nullptr) noted_failure(failure);
        } catch (const process_ended &) { // as the tree's allocators do
            free_devtree(root.children);
            root.children = nullptr;
            return;
        }
    }
}

// What the algorithm names and nothing else: the BMC, the chassis, the reservation, the pieces of each
// record, a reading of each sensor that is offered.
TEST_F(scan_ipmi_sensors_test, issues_no_command_too_many) {
    bmc.add_many(400);
    EXPECT_SUCCESS(scan());
    EXPECT_EQ(bmc.count(6, 1), 1);
    EXPECT_EQ(bmc.count(0, 1), 1);
    EXPECT_EQ(bmc.count(10, 0x22), 1);
    int pieces = 0;
    for (const stored_record &record : bmc.records)
        pieces += static_cast<int>((record.bytes[4] + 15U) / 16);
    EXPECT_EQ(bmc.count(10, 0x23), pieces);
    EXPECT_EQ(bmc.count(4, 0x2D), 400);
    EXPECT_EQ(bmc.asked.size(), static_cast<size_t>(1 + 1 + 1 + pieces + 400));
    EXPECT_EQ(devtree_count_checks(root.children), 405U);
}

// ---- checks

namespace {

// A device as the server configures it: no name, no record of the scan.
struct configured_device {
    devtree_guard tree{heap_new<devtree>()};
    devnode *device = nullptr;
    resnode_guard result{alloc_resnode()};

    configured_device(const std::vector<const char *> &groups, const char *id) {
        tree->id = text_copy("ipmisens");
        devtree *group = tree.get();
        for (const char *name : groups)
            group = devtree_child(group, name, "");
        device = alloc_devnode();
        device->id = text_copy(id);
        devtree_add_devices(group, device);
    }
    const char *check() { return check_ipmi_sensor(device, result.get()); }
};

} // namespace

TEST_F(check_ipmi_sensor_test, reads_each_kind_with_a_single_command) {
    add_sensor({.number = 0x31, .m = 2, .text = "CPU"}, {0, 50, 0xC0, 0});
    add_sensor({.type = 2, .number = 0x32, .reading_type = 3}, {0, 0, 0xC0, 2});
    add_sensor({.type = 2, .number = 0x33, .entity = 4, .sensor_type = 13, .reading_type = 0x6F},
               {0, 0, 0xC0, 8, 0});
    EXPECT_SUCCESS(scan());
    bmc.asked.clear();
    configured_device analog({"E07", "I01", "S01"}, "00:31");
    EXPECT_SUCCESS(analog.check());
    EXPECT_EQ(analog.result->real_value, 100);
    configured_device digital({"E07", "I01", "S01"}, "00:32:03");
    EXPECT_SUCCESS(digital.check());
    EXPECT_EQ(digital.result->value, 1);
    EXPECT_STREQ(digital.result->comment, "State Asserted");
    configured_device bay({"E04", "I01", "S0D"}, "00:33:6F");
    EXPECT_SUCCESS(bay.check());
    EXPECT_STREQ(bay.result->comment, "Disk OK, hot spare");
    configured_device chassis({"chassisstatus"}, "drivefault");
    EXPECT_SUCCESS(chassis.check());
    EXPECT_EQ(bmc.asked.size(), 4U);
}

TEST_F(check_ipmi_sensor_test, needs_a_scan_before) {
    configured_device device({"E07", "I01", "S01"}, "00:31");
    EXPECT_FAILURE(device.check(), "Cannot read sensor: No BMCs initialized");
    configured_device chassis({"chassisstatus"}, "drivefault");
    EXPECT_FAILURE(chassis.check(), "Cannot read sensor: No BMCs initialized");
}

TEST_F(check_ipmi_sensor_test, verifies_zeros_once_more_behind_the_scan) {
    add_sensor({.number = 0x31}, {0, 0, 0xC0, 0});
    EXPECT_SUCCESS(scan());
    EXPECT_EQ(bmc.count(4, 0x2D), 3) << "the scan's own reading is the first of two";
    configured_device device({"E07", "I01", "S01"}, "00:31");
    for (int reads : {3, 1, 1}) {
        bmc.asked.clear();
        EXPECT_SUCCESS(device.check());
        EXPECT_EQ(bmc.count(4, 0x2D), reads);
    }
}

TEST_F(check_ipmi_sensor_test, reads_a_digital_sensor_with_a_format_as_digital) {
    add_sensor({.number = 0x31, .reading_type = 3, .base_unit = 1, .text = "Door"}, {0, 99, 0xC0, 2});
    EXPECT_SUCCESS(scan());
    devnode *offered = sensor("00:31");
    ASSERT_NE(offered, nullptr) << "offered as an analog one";
    EXPECT_STREQ(offered->name, "Door (Analog)");
    EXPECT_EQ(offered->type, 7U);
    EXPECT_STREQ(offered->unit, "");
    resnode_guard result(alloc_resnode());
    EXPECT_SUCCESS(check_ipmi_sensor(offered, result.get()));
    EXPECT_EQ(result->value, 1);
    EXPECT_EQ(result->real_value, 0);
}

TEST_F(check_ipmi_sensor_test, ignores_the_third_field_of_an_id) {
    add_sensor({.lun = 1, .number = 0xFE}, {0, 50, 0xC0, 0});
    EXPECT_SUCCESS(scan());
    for (const char *id : {"01:FE", "01:FE:6F", "1:fe", "01:FE:", "01:FEzz"}) {
        configured_device device({"E07"}, id);
        EXPECT_SUCCESS(device.check()) << id;
    }
}

TEST_F(check_ipmi_sensor_test, names_an_id_that_it_cannot_parse) {
    EXPECT_SUCCESS(scan());
    for (const char *id : {"", "00", "00:", "zz:31", "00-31", ":31", "001:31"}) {
        configured_device device({"E07"}, id);
        EXPECT_FAILURE(device.check(), "Unable to parse id \"" + std::string(id) + "\"");
    }
}

TEST_F(check_ipmi_sensor_test, names_a_sensor_without_record) {
    add_sensor({.number = 0x31}, PLAIN);
    EXPECT_SUCCESS(scan());
    for (const char *id : {"01:31", "00:32", "00:03:10"}) {
        configured_device device({"E07"}, id);
        EXPECT_FAILURE(device.check(), "No SDR for sensor " + std::string(id));
    }
}

TEST_F(check_ipmi_sensor_test, reads_the_latest_of_two_records_of_one_number) {
    add_sensor({.number = 0x31, .m = 1}, {0, 50, 0xC0, 0});
    bmc.add({.number = 0x31, .m = 3});
    EXPECT_SUCCESS(scan());
    configured_device device({"E07"}, "00:31");
    EXPECT_SUCCESS(device.check());
    EXPECT_EQ(device.result->real_value, 150);
}

TEST_F(check_chassis_status_test, tells_each_fault_by_its_bit) {
    const struct {
        const char *id;
        size_t byte;
        uint8_t mask;
        const char *problem, *fine;
    } rows[] = {
        {"poweroverload", 0, 0x02, "Problem with power load", "Power load is OK"},
        {"mainpowerfault", 0, 0x08, "Problem with main power", "Main power is OK"},
        {"powercontrolfault", 0, 0x10, "Problem with power control", "Power control is OK"},
        {"drivefault", 2, 0x04, "Problem with drives", "Drives are OK"},
        {"coolingfault", 2, 0x08, "Problem with Cooling/Fans", "Cooling/Fans are OK"},
    };
    EXPECT_SUCCESS(scan());
    for (const auto &row : rows) {
        configured_device device({"chassisstatus"}, row.id);
        bmc.chassis = {0, 0, 0, 0, 0};
        bmc.chassis[1 + row.byte] = row.mask;
        EXPECT_SUCCESS(device.check());
        EXPECT_EQ(device.result->value, 1);
        EXPECT_STREQ(device.result->comment, row.problem);
        bmc.chassis = {0, 0xFF, 0xFF, 0xFF, 0xFF};
        bmc.chassis[1 + row.byte] = static_cast<uint8_t>(~row.mask);
        EXPECT_SUCCESS(device.check());
        EXPECT_EQ(device.result->value, 0);
        EXPECT_STREQ(device.result->comment, row.fine);
    }
}

TEST_F(check_chassis_status_test, leaves_an_unknown_fault_empty) {
    EXPECT_SUCCESS(scan());
    configured_device device({"chassisstatus"}, "flood");
    EXPECT_SUCCESS(device.check());
    EXPECT_EQ(device.result->value, 0);
    EXPECT_EQ(device.result->comment, nullptr);
}

TEST_F(check_chassis_status_test, fails_with_the_bmc) {
    EXPECT_SUCCESS(scan());
    configured_device device({"chassisstatus"}, "drivefault");
    bmc.chassis = {0xC3, 0, 0, 0};
    EXPECT_FAILURE(device.check(), "Get Chassis Status return ccode 195");
    bmc.chassis = {0, 0, 0};
    EXPECT_FAILURE(device.check(), "Get Chassis Status: got too few data");
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(device.check(), "Unable to execute method: RPC link failure");
    channel.gives_outputs = false;
    EXPECT_FAILURE(device.check(), "Get Chassis Status: didn't return a response");
    EXPECT_EQ(device.result->comment, nullptr);
}
