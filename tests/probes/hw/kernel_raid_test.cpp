#include "probes/hw/kernel_raid.h"

#include "fakes/hex.h"
#include "fakes/scripted_raid.h"
#include "fakes/test_host.h"
#include "probes/hw/fake_kernel.h"
#include "probes/hw/raid.h"

#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

const raid_ops kernel_raid = {.CreateFileA = kernel_raid_open,
                              .DeviceIoControl = kernel_raid_control,
                              .CloseHandle = kernel_raid_close};

constexpr char MACHINE[] = R"(/sys/class/scsi_host/host0/proc_name: ahci
/sys/class/scsi_host/host3/proc_name: hpsa
/sys/class/scsi_device/0:0:0:0/device/scsi_generic/sg0/dev: 21:0
/sys/class/scsi_device/3:1:0:0/device/scsi_generic/sg2/dev: 21:2
/sys/class/scsi_device/3:0:10:0/device/scsi_generic/sg9/dev: 21:9
/sys/class/scsi_device/3:0:2:0/device/type: 0
/sys/class/scsi_device/3:0:4:0/device/scsi_generic/sg5/dev: 21:5)";

struct kernel_raid_test : testing::Test {
    test_host host;
    fake_kernel kernel;
    scripted_controller controller;
    uint16_t command_status = 0;
    std::string refused_sense; // for volumes that are not there
    bool refuses = false;
    names commands;
    std::vector<uint32_t> lengths;
    devtree root = {};

    kernel_raid_test() {
        kernel.set_last_error = [this](uint32_t code) { host.last_error = code; };
        kernel.add(MACHINE);
        kernel.nodes["/dev/sg5"].ciss = [this](ciss_passthru *request) { return answer(request); };
        controller.volumes[1] = {512, 77, 8};
        raid_host = &kernel_raid;
    }
    ~kernel_raid_test() override {
        close_controllers();
        kernel_raid_reset();
        EXPECT_TRUE(kernel.open_nodes.empty()) << "nodes left open";
        free_devtree(root.children);
        EXPECT_EQ(host.blocks, 0);
        raid_host = nullptr;
    }

    bool answer(ciss_passthru *request) {
        if (refuses) return false;
        commands.push_back(hex(std::string(reinterpret_cast<char *>(request->cdb), request->cdb_length)));
        lengths.push_back(request->data_length);
        uint8_t volume = request->cdb[1];
        uint8_t block[676] = {};
        request->command_status = command_status;
        fill_ciss_reply(controller, request->cdb[6], volume, block);
        memcpy(request->data, block + 148, request->data_length);
        if (request->cdb[6] == 0x11 || controller.volumes.contains(volume) || refused_sense.empty())
            return true;
        request->command_status = 1;
        request->sense_length = static_cast<uint32_t>(refused_sense.size());
        memcpy(request->sense, refused_sense.data(), refused_sense.size());
        memset(request->data, 'j', 8); // what stands there is nothing
        return true;
    }

    std::string check() {
        if (root.children == nullptr) return "nothing is offered";
        devnode *device = root.children->children->children->children->devices;
        resnode result = {};
        std::string failure = noted_failure(check_raid(device, &result));
        std::string text =
            failure == "(none)" ? std::to_string(result.value) + " " + result.comment : failure;
        heap_free(result.comment);
        return text;
    }
};

const std::string ILLEGAL_REQUEST = bytes("70 00 05 00 00 00 00 0A 00 00 00 00 24 00 00 00 00 00");

} // namespace

TEST_F(kernel_raid_test, asks_the_controller_by_the_node_of_its_lowest_device) {
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(kernel.opened, names{"/dev/sg5"});
    EXPECT_EQ(kernel.open_writable, 1U);
    EXPECT_EQ(commands.size(), 33U);
    EXPECT_EQ(commands[0], "26 00 00 00 00 00 11 00 00 00");
    EXPECT_EQ(commands[2], "26 01 00 00 00 00 10 00 00 00");
    EXPECT_EQ(lengths[0], 528U);
    EXPECT_EQ(lengths[1], 526U);
    EXPECT_TRUE(host.logged(1, "Driver on \\\\.\\scsi1: is Compaq legacy CISS capable"));
    EXPECT_TRUE(host.logged(-1, " Located volume 1 (77 blocks of 512 bytes)"));
    EXPECT_EQ(check(), "8 Hardware is overheating");
    EXPECT_EQ(commands.back(), "26 01 00 00 00 00 12 00 00 00");
}

TEST_F(kernel_raid_test, sends_nothing_to_drivers_that_speak_no_ciss) {
    kernel.files["/sys/class/scsi_host/host3/proc_name"] = "mpt3sas\n";
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_TRUE(kernel.opened.empty());
    EXPECT_TRUE(host.logged(-1, " \\\\.\\scsi1: does not support legacy Compaq CISS"));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(kernel_raid_test, knows_two_drivers) {
    EXPECT_TRUE(driver_speaks_ciss("hpsa"));
    EXPECT_TRUE(driver_speaks_ciss("smartpqi"));
    EXPECT_FALSE(driver_speaks_ciss("hpsa2"));
    EXPECT_FALSE(driver_speaks_ciss(""));
}

TEST_F(kernel_raid_test, finds_nothing_where_there_is_no_scsi) {
    kernel.files.clear();
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(host.count_logged("Probing"), 0);
}

TEST_F(kernel_raid_test, asks_for_the_hosts_once_a_scan) {
    auto listings = [this] {
        int64_t count = std::count(kernel.listed.begin(), kernel.listed.end(), "/sys/class/scsi_host/");
        kernel.listed.clear();
        return count;
    };
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(listings(), 1);
    kernel.add("/sys/class/scsi_host/host2/proc_name: ahci");
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(listings(), 1);
    EXPECT_TRUE(host.logged(1, "Driver on \\\\.\\scsi2: is Compaq legacy CISS capable"));
    kernel.files.clear();
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(listings(), 1) << "though there are none";
    EXPECT_EQ(raid_controller_count, 0U);
}

TEST_F(kernel_raid_test, asks_for_the_hosts_again_where_a_port_is_not_behind_the_one_before) {
    auto opens = [](const char *path) {
        raid_adapter *adapter = kernel_raid_open(path, 0);
        if (adapter != nullptr) kernel_raid_close(adapter);
        return adapter != nullptr;
    };
    EXPECT_TRUE(opens("\\\\.\\scsi1:"));
    EXPECT_FALSE(opens("\\\\.\\scsi2:"));
    kernel.add("/sys/class/scsi_host/host9/proc_name: ahci");
    EXPECT_TRUE(opens("\\\\.\\scsi2:"));
    kernel.remove("/sys/class/scsi_host/host9/");
    EXPECT_FALSE(opens("\\\\.\\scsi2:"));
    EXPECT_FALSE(opens("\\\\.\\scsi"));
    EXPECT_EQ(host.last_error, 2U);
}

TEST_F(kernel_raid_test, passes_over_a_controller_whose_node_cannot_be_had) {
    kernel.nodes["/dev/sg5"].open_error = 13;
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(host.count_logged("Probing for CSMI support on \\\\.\\scsi1:"), 0);
    EXPECT_EQ(kernel_raid_open("\\\\.\\scsi1:", 0), nullptr);
    EXPECT_EQ(host.last_error, 13U);
    kernel.remove("/sys/class/scsi_device/");
    EXPECT_EQ(kernel_raid_open("\\\\.\\scsi1:", 0), nullptr);
    EXPECT_EQ(host.last_error, 6U);
}

TEST_F(kernel_raid_test, takes_less_data_for_success) {
    command_status = 2;
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(check(), "8 Hardware is overheating");
}

TEST_F(kernel_raid_test, gives_the_status_of_a_command_as_return_code) {
    EXPECT_SUCCESS(scan_raid(&root));
    command_status = 11;
    EXPECT_EQ(check(), "Legacy Compaq CISS driver returned status 11");
    refuses = true;
    EXPECT_EQ(check(), "Cannot send CISS BMIC");
}

TEST_F(kernel_raid_test, takes_a_refused_volume_for_an_absent_one) {
    refused_sense = ILLEGAL_REQUEST;
    EXPECT_SUCCESS(scan_raid(&root));
    EXPECT_EQ(commands.size(), 33U);
    EXPECT_EQ(host.count_logged("Located volume"), 1);
}

TEST_F(kernel_raid_test, takes_no_other_failure_for_an_absent_volume) {
    refused_sense = ILLEGAL_REQUEST;
    refused_sense[2] = 4; // the hardware's
    EXPECT_FAILURE(scan_raid(&root), "Failed legacy volume inquiry, \\\\.\\scsi1: lv0");
}

TEST_F(kernel_raid_test, takes_a_refused_status_for_a_failure) {
    EXPECT_SUCCESS(scan_raid(&root));
    refused_sense = ILLEGAL_REQUEST;
    controller.volumes.clear();
    EXPECT_EQ(check(), "Legacy Compaq CISS driver returned status 1");
}

TEST_F(kernel_raid_test, takes_one_control_in_its_sizes) {
    raid_adapter *adapter = kernel_raid_open("\\\\.\\scsi1:", 0);
    ASSERT_NE(adapter, nullptr);
    uint8_t block[676] = {};
    block[38] = 10;
    EXPECT_TRUE(kernel_raid_control(adapter, 0x4D008, block, 676));
    EXPECT_TRUE(kernel_raid_control(adapter, 0x4D008, block, 149));
    EXPECT_FALSE(kernel_raid_control(adapter, 0x4D008, block, 148));
    EXPECT_FALSE(kernel_raid_control(adapter, 0x4D004, block, 676));
    block[38] = 17;
    EXPECT_FALSE(kernel_raid_control(adapter, 0x4D008, block, 676));
    block[38] = 0;
    EXPECT_FALSE(kernel_raid_control(adapter, 0x4D008, block, 676));
    EXPECT_EQ(host.last_error, 22U);
    kernel_raid_close(adapter);
    adapter = kernel_raid_open("\\\\.\\scsi0:", 0);
    EXPECT_FALSE(kernel_raid_control(adapter, 0x4D008, block, 676));
    EXPECT_EQ(host.last_error, 25U);
    kernel_raid_close(adapter);
}

TEST_F(kernel_raid_test, asks_for_the_hosts_again_where_memory_was_out) {
    kernel_raid_close(kernel_raid_open("\\\\.\\scsi0:", 0));
    kernel.add("/sys/class/scsi_host/host9/proc_name: ahci");
    host.fail_allocation = 1;
    EXPECT_EQ(kernel_raid_open("\\\\.\\scsi0:", 0), nullptr);
    raid_adapter *adapter = kernel_raid_open("\\\\.\\scsi2:", 0);
    ASSERT_NE(adapter, nullptr);
    kernel_raid_close(adapter);
}

TEST_F(kernel_raid_test, needs_memory) {
    for (uint32_t n = 1; n <= 4; n++) {
        host.last_error = 0;
        host.fail_allocation = n;
        EXPECT_EQ(kernel_raid_open("\\\\.\\scsi1:", 0), nullptr);
        EXPECT_EQ(host.last_error, 12U) << n;
    }
}
