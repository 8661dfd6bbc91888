#include "probes/hw/smart.h"

#include "fakes/hex.h"
#include "fakes/scripted_drives.h"
#include "fakes/test_host.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

namespace {

struct smart_fixture : testing::Test {
    test_host host;
    scripted_drives script;
    agent_config config = {};
    devtree root = {};
    devnode_guard device{alloc_devnode()};
    resnode result = {};

    smart_fixture() {
        script.set_last_error = [this](uint32_t code) { host.last_error = code; };
        config_in_force = &config;
        device->id = text_copy("PhysicalDrive0");
    }
    ~smart_fixture() override {
        EXPECT_EQ(script.open_drives, 0) << "drives left open";
        device.reset();
        heap_free(result.comment);
        free_devtree(root.children);
        EXPECT_EQ(host.blocks, 0);
        config_in_force = nullptr;
    }

    std::vector<std::string> offered() const {
        std::vector<std::string> ids;
        for (devnode *found = root.children != nullptr ? root.children->devices : nullptr; found != nullptr;
             found = found->next)
            ids.emplace_back(found->id);
        return ids;
    }

    // The sub-commands that drives were sent, in hexadecimal.
    std::string commands() const {
        std::string all;
        for (const smart_request &request : script.requests)
            all += request.block.substr(4, 1);
        return hex(all);
    }

    std::string comment() const { return result.comment != nullptr ? result.comment : "(none)"; }
};

struct scan_smart : smart_fixture {};
struct check_smart_test : smart_fixture {
    scripted_drive &drive = script.add(0);
};
struct smart_commands : smart_fixture {
    scripted_drive &scripted = script.add(0);
    smart_drive *drive = scripted_drive_open("\\\\.\\PhysicalDrive0", 0);
    ~smart_commands() override { scripted_drive_close(drive); }
};

using names = std::vector<std::string>;

} // namespace

// ---- scan

TEST_F(scan_smart, offers_a_capable_drive) {
    script.add(0);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    devtree *group = root.children;
    ASSERT_NE(group, nullptr);
    EXPECT_STREQ(group->id, "smart");
    EXPECT_STREQ(group->name, "SMART status");
    EXPECT_EQ(group->group_flags, GROUP_OF_INSTANCES);
    EXPECT_EQ(group->name_template, nullptr);
    devnode *found = group->devices;
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->id, "PhysicalDrive0");
    EXPECT_STREQ(found->name, "PhysicalDrive0");
    EXPECT_STREQ(found->comment, "IDE S.M.A.R.T.");
    EXPECT_STREQ(found->unit, "");
    EXPECT_EQ(found->type, 5U);
    EXPECT_TRUE(is_bitmap_type(found->type));
    EXPECT_EQ(found->description, 10U);
    EXPECT_EQ(found->limits.hint.hint_present, 0U);
}

TEST_F(scan_smart, tells_what_it_does) {
    script.add(0);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_TRUE(host.logged(-1, "In scan_smart_ide"));
    EXPECT_TRUE(host.logged(0, "Will look at device \"\\\\.\\PhysicalDrive0\""));
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive0 is smart-capable"));
    EXPECT_TRUE(host.logged(0, "Will look at device \"\\\\.\\PhysicalDrive1\""));
}

TEST_F(scan_smart, puts_the_latest_drive_first) {
    for (uint32_t number = 0; number < 12; number++)
        script.add(number);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    names ids = offered();
    ASSERT_EQ(ids.size(), 12U);
    EXPECT_EQ(ids.front(), "PhysicalDrive11");
    EXPECT_EQ(ids.back(), "PhysicalDrive0");
}

TEST_F(scan_smart, passes_over_a_drive_that_cannot_be_enabled) {
    script.add(0).enables = false;
    script.add(1);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(offered(), names{"PhysicalDrive1"});
    EXPECT_EQ(host.count_logged("PhysicalDrive0 is smart-capable"), 0);
}

TEST_F(scan_smart, takes_no_success_for_one_but_the_value_1) {
    script.add(0).success = 2;
    script.add(1).success = -1;
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_smart, ends_at_a_gap) {
    script.add(0);
    script.add(2);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(offered(), names{"PhysicalDrive0"});
    EXPECT_EQ(script.opened, (names{"\\\\.\\PhysicalDrive0", "\\\\.\\PhysicalDrive1"}));
}

TEST_F(scan_smart, ends_at_a_drive_that_may_not_be_opened) {
    script.add(0).open_error = 5;
    script.add(1);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(script.opened.size(), 1U);
}

TEST_F(scan_smart, offers_nothing_where_there_is_nothing) {
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_smart, says_what_has_no_such_data_and_sends_it_nothing) {
    script.add(0).foreign = "an NVMe drive";
    script.add(1);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(offered(), names{"PhysicalDrive1"});
    EXPECT_EQ(script.requests.size(), 1U);
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive0 is an NVMe drive, which has no such SMART data"));
}

TEST_F(scan_smart, asks_a_host_that_cannot_tell_kinds_nothing) {
    smart_ops without_kinds = scripted_smart_ops;
    without_kinds.foreign_kind = nullptr;
    smart_host = &without_kinds;
    script.add(0).foreign = "nobody asks";
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(offered(), names{"PhysicalDrive0"});
}

TEST_F(scan_smart, is_turned_off_by_its_setting) {
    config.disable_smart = 1;
    script.add(0);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_TRUE(script.opened.empty());
    EXPECT_TRUE(host.logged(-1, "In scan_smart_ide"));
    EXPECT_TRUE(host.logged(0, "SMART disabled - will not scan"));
}

TEST_F(scan_smart, opens_each_drive_once_and_sends_it_one_command) {
    for (uint32_t number = 0; number < 24; number++)
        script.add(number);
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_EQ(script.opened.size(), 25U);
    EXPECT_EQ(script.requests.size(), 24U);
}

TEST_F(scan_smart, says_when_there_is_no_memory_for_its_group) {
    script.add(0);
    host.fail_allocation = 6; // behind the device and its four texts
    EXPECT_FAILURE(scan_smart_ide(&root), "Couldn't allocate devtree_child mem");
}

// ---- commands

TEST_F(smart_commands, are_blocks_of_32_bytes) {
    std::string rest(16, '\0');
    EXPECT_SUCCESS(smart_enable(drive));
    EXPECT_EQ(script.requests[0].block, bytes("00 00 00 00 D8 01 01 4F C2 00 B0 00 00 00 00 00") + rest);
    EXPECT_EQ(script.requests[0].control, 0x7C084U);
    EXPECT_EQ(script.requests[0].output_size, 16U);

    EXPECT_TRUE(smart_return_status(drive));
    EXPECT_EQ(script.requests[1].block, bytes("00 00 00 00 DA 01 01 4F C2 00 B0 00 00 00 00 00") + rest);
    EXPECT_EQ(script.requests[1].control, 0x7C084U);
    EXPECT_EQ(script.requests[1].output_size, 16U);

    uint8_t *reply = nullptr;
    EXPECT_SUCCESS(smart_read_values(drive, &reply));
    heap_free(reply);
    EXPECT_EQ(script.requests[2].block, bytes("00 00 00 00 D0 01 01 4F C2 00 B0 00 00 00 00 00") + rest);
    EXPECT_EQ(script.requests[2].control, 0x7C088U);
    EXPECT_EQ(script.requests[2].output_size, 528U);

    EXPECT_SUCCESS(smart_read_thresholds(drive, &reply));
    heap_free(reply);
    EXPECT_EQ(script.requests[3].block, bytes("00 00 00 00 D1 01 01 4F C2 00 B0 00 00 00 00 00") + rest);
    EXPECT_EQ(script.requests[3].control, 0x7C088U);
    EXPECT_EQ(script.requests[3].output_size, 528U);
}

TEST_F(smart_commands, fail_in_words) {
    uint8_t *reply = nullptr;
    scripted = {.enables = false, .gives_values = false, .gives_thresholds = false, .gives_status = false};
    EXPECT_FAILURE(smart_enable(drive), "SMART not enabled");
    EXPECT_FAILURE(smart_read_values(drive, &reply), "SMART_READ_ATTRIBUTE_VALUES call failed");
    EXPECT_FAILURE(smart_read_thresholds(drive, &reply), "SMART_READ_THRESHOLDS call failed");
    EXPECT_FALSE(smart_return_status(drive));
    EXPECT_EQ(reply, nullptr);
}

TEST_F(smart_commands, fail_without_memory_ahead_of_the_drive) {
    uint8_t *reply = nullptr;
    host.fail_allocation = 1;
    EXPECT_FAILURE(smart_read_values(drive, &reply), "Out of memory in smart_read_values");
    host.fail_allocation = 1;
    EXPECT_FAILURE(smart_read_thresholds(drive, &reply), "Out of memory in smart_read_thresholds");
    EXPECT_TRUE(script.requests.empty());
}

// ---- check

TEST_F(check_smart_test, reads_both_tables_of_the_drive_that_its_id_names) {
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(comment(), "Drive is OK");
    EXPECT_EQ(commands(), "D0 D1");
    EXPECT_EQ(script.opened, names{"\\\\.\\PhysicalDrive0"});
    EXPECT_EQ(script.accesses, std::vector<uint32_t>{0x10000000});
}

TEST_F(check_smart_test, finds_the_tables_behind_the_header) {
    put_slot(&drive.values, 0, 1, 0, 5);
    put_slot(&drive.thresholds, 0, 1, 5);
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 1);
    EXPECT_EQ(comment(), "Drive has exceeded lifetime");
}

TEST_F(check_smart_test, reports_a_drive_that_is_about_to_fail) {
    put_slot(&drive.values, 29, 1, 1, 5);
    put_slot(&drive.thresholds, 29, 1, 9);
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 2);
    EXPECT_EQ(comment(), "Drive is about to fail");
}

TEST_F(check_smart_test, falls_back_on_the_status_where_values_cannot_be_read) {
    drive.gives_values = false;
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(comment(), "Drive is OK");
    EXPECT_EQ(commands(), "D0 DA");
    EXPECT_TRUE(host.logged(0, "Couldn't read attribute values"));
}

TEST_F(check_smart_test, falls_back_on_the_status_where_thresholds_cannot_be_read) {
    drive.gives_thresholds = false;
    put_slot(&drive.values, 0, 1, 1, 5);
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(commands(), "D0 D1 DA");
    EXPECT_TRUE(host.logged(0, "Couldn't read attribute thresholds"));
}

TEST_F(check_smart_test, takes_a_drive_that_answers_nothing_for_one_about_to_fail) {
    drive = {.gives_values = false, .gives_thresholds = false, .gives_status = false};
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 2);
    EXPECT_EQ(comment(), "Drive is about to fail");
}

TEST_F(check_smart_test, falls_back_on_the_status_without_memory) {
    for (uint32_t n = 1; n <= 2; n++) {
        script.requests.clear();
        host.fail_allocation = n;
        EXPECT_SUCCESS(check_smart(device.get(), &result));
        EXPECT_EQ(commands(), n == 1 ? "DA" : "D0 DA");
        heap_free(result.comment);
        result.comment = nullptr;
    }
}

TEST_F(check_smart_test, fails_where_the_drive_cannot_be_opened) {
    drive.open_error = 5;
    EXPECT_FAILURE(check_smart(device.get(), &result), "Cannot open device PhysicalDrive0: system error 5");
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(check_smart_test, fails_where_another_kind_of_drive_has_the_number_now) {
    drive.foreign = "an NVMe drive";
    EXPECT_FAILURE(check_smart(device.get(), &result),
                   "Cannot open device PhysicalDrive0: it is an NVMe drive");
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(check_smart_test, is_turned_off_by_its_setting) {
    config.disable_smart = 1;
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(comment(), "SMART disabled on agent");
    EXPECT_TRUE(script.opened.empty());
    EXPECT_TRUE(host.logged(0, "SMART disabled - will not check \"PhysicalDrive0\""));
}

TEST_F(check_smart_test, leaves_no_state_on_the_device) {
    EXPECT_SUCCESS(check_smart(device.get(), &result));
    EXPECT_EQ(device->state_magic, NO_STATE_MAGIC);
}
