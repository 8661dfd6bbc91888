#include "probes/hw/raid.h"

#include "fakes/hex.h"
#include "fakes/scripted_raid.h"
#include "fakes/test_host.h"
#include "platform/text.h"

#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

struct raid_fixture : testing::Test {
    test_host host;
    scripted_raid script;
    devtree root = {};
    resnode result = {};

    raid_fixture() {
        script.set_last_error = [this](uint32_t code) { host.last_error = code; };
    }
    ~raid_fixture() override {
        close_controllers();
        EXPECT_EQ(script.open_adapters, 0) << "adapters left open";
        heap_free(result.comment);
        free_devtree(root.children);
        EXPECT_EQ(host.blocks, 0);
    }
};

struct scan_raid_test : raid_fixture {
    const devtree *group(const names &path) const {
        const devtree *found = root.children;
        for (size_t level = 0; found != nullptr && level < path.size(); level++) {
            if (level > 0) found = found->children;
            while (found != nullptr && path[level] != found->id)
                found = found->next;
        }
        return found;
    }

    // BMIC command and volume of each request.
    names requests() const {
        names all;
        for (const std::string &block : script.requests)
            all.push_back(hex(block.substr(46, 1) + block.substr(41, 1)));
        return all;
    }
};

struct check_raid_test : raid_fixture {
    scripted_controller &controller = script.add(3);

    void SetUp() override {
        controller.volumes[2] = {512, 1000, 5};
        ASSERT_EQ(scan_raid(&root), nullptr);
        script.requests.clear();
    }

    const char *check(const char *controller_id, const char *volume_id, const char *id) {
        heap_free(result.comment);
        result = {};
        devtree *top = devtree_child(&root, "tried", "");
        top->parent = nullptr; // as in a tree of its own
        devtree *logical = devtree_child(devtree_child(top, controller_id, ""), "logical", "");
        devtree *volume = devtree_child(logical, volume_id, "");
        devnode *device = alloc_devnode();
        device->id = text_copy(id);
        devtree_add_devices(volume, device);
        return check_raid(device, &result);
    }
};

} // namespace

// ---- scan

TEST_F(scan_raid_test, offers_a_volume) {
    script.add(3).volumes[2] = {512, 1000, 0};
    EXPECT_SUCCESS(scan_raid(&root));
    const devtree *top = group({"csmiplus"});
    ASSERT_NE(top, nullptr);
    EXPECT_STREQ(top->name, "Array controllers");
    EXPECT_EQ(top->group_flags, GROUP_OF_INSTANCES);
    EXPECT_STREQ(top->name_template, "%1r %0r on %3r");
    const devtree *controller = group({"csmiplus", "cntrl:0"});
    ASSERT_NE(controller, nullptr);
    EXPECT_STREQ(controller->name, "Controller 0");
    EXPECT_EQ(controller->group_flags, 0U);
    const devtree *logical = group({"csmiplus", "cntrl:0", "logical"});
    ASSERT_NE(logical, nullptr);
    EXPECT_STREQ(logical->name, "Volumes");
    EXPECT_EQ(logical->group_flags, GROUP_OF_INSTANCES);
    const devtree *volume = group({"csmiplus", "cntrl:0", "logical", "lv:2"});
    ASSERT_NE(volume, nullptr);
    EXPECT_STREQ(volume->name, "Volume 2");
    const devnode *status = volume->devices;
    ASSERT_NE(status, nullptr);
    EXPECT_EQ(status->next, nullptr);
    EXPECT_STREQ(status->id, "cciss:status");
    EXPECT_STREQ(status->name, "Status");
    EXPECT_STREQ(status->comment, "");
    EXPECT_STREQ(status->unit, "");
    EXPECT_EQ(status->type, 13U);
    EXPECT_TRUE(is_bitmap_type(status->type));
    EXPECT_EQ(status->description, 27U);
}

TEST_F(scan_raid_test, tells_what_it_does) {
    script.add(3).volumes[2] = {512, 1000, 0};
    script.add(4).legacy = false;
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_TRUE(host.logged(-1, "Probing for CSMI support on \\\\.\\scsi3:"));
    EXPECT_TRUE(host.logged(-1, " \\\\.\\scsi3: does not support CSMI (disabled) - probing legacy CCISS"));
    EXPECT_TRUE(host.logged(-1, " \\\\.\\scsi3: is Legacy Compaq: 1 LVs, firmware: 5.14"));
    EXPECT_TRUE(host.logged(1, "Driver on \\\\.\\scsi3: is Compaq legacy CISS capable"));
    EXPECT_TRUE(host.logged(-1, " \\\\.\\scsi4: does not support legacy Compaq CISS"));
    EXPECT_EQ(host.count_logged("Driver on \\\\.\\scsi4:"), 0);
    EXPECT_TRUE(host.logged(-1, "Will probe for volumes on \\\\.\\scsi3:"));
    EXPECT_TRUE(host.logged(-1, " Located volume 2 (1000 blocks of 512 bytes)"));
    EXPECT_EQ(host.count_logged("Located volume"), 1);
}

TEST_F(scan_raid_test, opens_ports_0_to_254_once_each_whatever_is_missing) {
    script.add(0).volumes[0] = {512, 1, 0};
    script.add(254).volumes[0] = {512, 1, 0};
    script.add(255).volumes[0] = {512, 1, 0};
    EXPECT_SUCCESS(scan_raid(&root));
    ASSERT_EQ(script.opened.size(), 255U);
    EXPECT_EQ(script.opened[17], "\\\\.\\scsi17:");
    EXPECT_EQ(script.opened.back(), "\\\\.\\scsi254:");
    EXPECT_EQ(script.accesses, std::vector<uint32_t>(255, 0xC0000000));
    EXPECT_NE(group({"csmiplus", "cntrl:1"}), nullptr);
    EXPECT_EQ(group({"csmiplus", "cntrl:2"}), nullptr);
    EXPECT_EQ(script.open_adapters, 2);
    EXPECT_STREQ(raid_controllers[1].name, "\\\\.\\scsi254:");
    EXPECT_EQ(raid_controllers[1].type, CONTROLLER_LEGACY_CISS);
}

TEST_F(scan_raid_test, asks_a_controller_once_and_each_of_32_volumes_once) {
    script.add(0).volumes[31] = {512, 1, 0};
    script.add(1).legacy = false;
    EXPECT_SUCCESS(scan_raid(&root));
    names expected = {"11 00", "11 00"};
    for (int volume = 0; volume < 32; volume++) {
        char text[8];
        snprintf(text, sizeof text, "10 %02X", static_cast<unsigned>(volume));
        expected.emplace_back(text);
    }
    EXPECT_EQ(requests(), expected);
    EXPECT_EQ(script.controls, std::vector<uint32_t>(34, 0x4D008));
    EXPECT_EQ(script.requests[0].size(), 676U);
    EXPECT_EQ(script.requests[2].size(), 674U);
}

TEST_F(scan_raid_test, leaves_no_group_for_a_controller_without_volumes) {
    script.add(0);
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(raid_controller_count, 1U);
}

TEST_F(scan_raid_test, offers_nothing_where_there_is_nothing) {
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(raid_controller_count, 0U);
}

TEST_F(scan_raid_test, takes_a_volume_for_absent_when_both_its_sizes_are_0) {
    auto &volumes = script.add(0).volumes;
    volumes[0] = {0, 0, 0};
    volumes[1] = {512, 0, 0};
    volumes[2] = {0, 1, 0};
    volumes[32] = {512, 1, 0};
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(group({"csmiplus", "cntrl:0", "logical", "lv:0"}), nullptr);
    EXPECT_NE(group({"csmiplus", "cntrl:0", "logical", "lv:1"}), nullptr);
    EXPECT_NE(group({"csmiplus", "cntrl:0", "logical", "lv:2"}), nullptr);
    EXPECT_EQ(group({"csmiplus", "cntrl:0", "logical", "lv:32"}), nullptr);
}

TEST_F(scan_raid_test, passes_over_a_driver_that_reports_a_failure) {
    script.add(0).return_codes[0x11] = 1;
    script.add(1).volumes[0] = {512, 1, 0};
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(raid_controller_count, 1U);
    EXPECT_STREQ(raid_controllers[0].name, "\\\\.\\scsi1:");
    EXPECT_EQ(script.open_adapters, 1);
}

TEST_F(scan_raid_test, ends_at_a_volume_that_cannot_be_asked_and_keeps_the_controllers) {
    script.add(0).volumes[0] = {512, 1, 0};
    script.add(0).failing[0x10] = 5;
    script.add(1).volumes[0] = {512, 1, 0};
    EXPECT_FAILURE(scan_raid(&root), "Failed legacy volume inquiry, \\\\.\\scsi0: lv5");
    EXPECT_EQ(raid_controller_count, 2U);
    EXPECT_NE(group({"csmiplus", "cntrl:0", "logical", "lv:0"}), nullptr);
    EXPECT_EQ(group({"csmiplus", "cntrl:1"}), nullptr);
}

TEST_F(scan_raid_test, ends_at_a_volume_for_which_the_driver_reports_a_failure) {
    script.add(0).return_codes[0x10] = 9;
    EXPECT_FAILURE(scan_raid(&root), "Failed legacy volume inquiry, \\\\.\\scsi0: lv0");
}

TEST_F(scan_raid_test, closes_what_the_one_before_has_left_open) {
    script.add(0);
    script.add(1);
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(script.open_adapters, 2);
    script.ports.erase("\\\\.\\scsi1:");
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(script.open_adapters, 1);
    EXPECT_EQ(raid_controller_count, 1U);
}

TEST_F(scan_raid_test, has_room_for_a_controller_on_each_port) {
    for (uint32_t port = 0; port < 300; port++)
        script.add(port);
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(raid_controller_count, 255U);
}

TEST_F(scan_raid_test, says_of_a_csmi_controller_that_it_cannot_be_asked) {
    script.add(0).volumes[0] = {512, 1, 0};
    find_controllers();
    raid_controllers[0].type = CONTROLLER_CSMI;
    EXPECT_SUCCESS(scan_volumes(&root, 0));
    EXPECT_TRUE(host.logged(1, "Unable to query RAID info on \\\\.\\scsi0:: disabled"));
    EXPECT_EQ(script.requests.size(), 1U);
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_raid_test, says_of_a_controller_without_type_that_it_has_none) {
    script.add(0).volumes[0] = {512, 1, 0};
    find_controllers();
    raid_controllers[0].type = 0;
    EXPECT_SUCCESS(scan_volumes(&root, 0));
    EXPECT_TRUE(host.logged(3, "Unset controller type: 0"));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_raid_test, offers_the_check_that_goes_with_a_csmi_controller) {
    script.add(0);
    find_controllers();
    raid_controllers[0].type = CONTROLLER_CSMI;
    EXPECT_SUCCESS(offer_volume(&root, 0, 4));
    const devnode *status = group({"csmiplus", "cntrl:0", "logical", "lv:4"})->devices;
    EXPECT_STREQ(status->id, "csmi:status");
    EXPECT_STREQ(status->name, "Status (CSMI)");
    EXPECT_STREQ(status->comment, "");
    EXPECT_STREQ(status->unit, "");
    EXPECT_EQ(status->type, 14U);
    EXPECT_FALSE(is_bitmap_type(status->type));
    EXPECT_EQ(status->description, 28U);
}

TEST_F(scan_raid_test, does_not_survive_a_controller_whose_type_changes) {
    script.add(0);
    find_controllers();
    raid_controllers[0].type = 3;
    expect_fatal([&] { (void)offer_volume(&root, 0, 0); }, "Controller type changed behind us");
}

TEST_F(scan_raid_test, says_when_there_is_no_memory_for_a_group) {
    script.add(0).volumes[0] = {512, 1, 0};
    int failures = 0;
    for (uint32_t n = 6; n <= 17; n++) { // behind the check and its texts: four groups of three blocks
        host.fail_allocation = n;
        const char *failure = scan_raid(&root);
        EXPECT_FAILURE(failure, "Couldn't allocate devtree_child mem");
        failures++;
        free_devtree(root.children);
        root.children = nullptr;
    }
    EXPECT_EQ(failures, 12);
    EXPECT_EQ(host.blocks, 0);
}

// ---- check

TEST_F(check_raid_test, reads_the_state_of_its_volume) {
    EXPECT_SUCCESS(check("cntrl:0", "lv:2", "cciss:status"));
    EXPECT_EQ(result.value, 5);
    EXPECT_STREQ(result.comment, "Logical device recovering");
    ASSERT_EQ(script.requests.size(), 1U);
    EXPECT_EQ(hex(script.requests[0].substr(38, 10)), "0A 00 26 02 00 00 00 00 12 00");
    EXPECT_EQ(script.requests[0].size(), 674U);
    EXPECT_TRUE(host.logged(-1, "About to check cciss:status on volume 2 controller 0 (\\\\.\\scsi3:)"));
}

TEST_F(check_raid_test, reports_every_state) {
    for (int state = 0; state < 256; state++) {
        controller.volumes[2].state = static_cast<uint8_t>(state);
        EXPECT_SUCCESS(check("cntrl:0", "lv:2", "cciss:status"));
        EXPECT_EQ(result.value, state);
        EXPECT_EQ(std::string(result.comment) == "Unknown state", state > 12);
    }
}

TEST_F(check_raid_test, fails_for_groups_without_numbers) {
    EXPECT_FAILURE(check("cntrl:0", "volume 2", "cciss:status"), "Cannot scan volume id \"volume 2\"");
    EXPECT_FAILURE(check("cntrl:0", "lv:", "cciss:status"), "Cannot scan volume id \"lv:\"");
    EXPECT_FAILURE(check("cntrl:0", "lv:256", "cciss:status"), "Cannot scan volume id \"lv:256\"");
    EXPECT_FAILURE(check("cntrl:x", "lv:2", "cciss:status"), "Cannot scan controller id \"cntrl:x\"");
    EXPECT_FAILURE(check("lv:0", "lv:2", "cciss:status"), "Cannot scan controller id \"lv:0\"");
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(check_raid_test, fails_where_groups_are_missing) {
    devtree *top = devtree_child(&root, "lv:1", "");
    top->parent = nullptr;
    devtree *second = devtree_child(top, "lv:2", "");
    for (devtree *group : {top, second}) {
        devnode *device = alloc_devnode();
        device->id = text_copy("cciss:status");
        devtree_add_devices(group, device);
        EXPECT_FAILURE(check_raid(device, &result), "Cannot scan controller id \"\"");
    }
}

TEST_F(check_raid_test, fails_for_a_controller_that_the_last_scan_has_not_found) {
    EXPECT_FAILURE(check("cntrl:1", "lv:2", "cciss:status"), "Controller id 1 out of range (ceiling:1)");
    close_controllers();
    EXPECT_FAILURE(check("cntrl:0", "lv:2", "cciss:status"), "Controller id 0 out of range (ceiling:0)");
}

TEST_F(check_raid_test, fails_where_the_request_cannot_be_sent) {
    controller.failing[0x12] = 2;
    EXPECT_FAILURE(check("cntrl:0", "lv:2", "cciss:status"), "Cannot send CISS BMIC");
}

TEST_F(check_raid_test, fails_where_the_driver_reports_a_failure) {
    controller.return_codes[0x12] = 77;
    EXPECT_FAILURE(check("cntrl:0", "lv:2", "cciss:status"), "Legacy Compaq CISS driver returned status 77");
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(check_raid_test, has_no_csmi_status) {
    EXPECT_FAILURE(check("cntrl:0", "lv:2", "csmi:status"),
                   "No CSMI volume status on \\\\.\\scsi3:: disabled");
    EXPECT_TRUE(script.requests.empty());
}

TEST_F(check_raid_test, knows_no_other_check) {
    EXPECT_FAILURE(check("cntrl:0", "lv:2", "status"), "Unable to check \"status\"");
}
