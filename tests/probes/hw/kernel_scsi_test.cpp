#include "probes/hw/kernel_scsi.h"

#include "fakes/hex.h"
#include "fakes/scripted_scsi.h"
#include "fakes/test_host.h"
#include "probes/hw/fake_kernel.h"
#include "probes/hw/safte.h"
#include "probes/hw/scsi.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

const scsi_ops kernel_scsi = {.CreateFileA = kernel_scsi_open,
                              .DeviceIoControl = kernel_scsi_control,
                              .CloseHandle = kernel_scsi_close};

// A machine with an onboard controller, a disk on it, a hole where a stick was, and a SCSI adapter with a
// disk and an enclosure's processor, which nothing drives.
constexpr char MACHINE[] = R"(/sys/class/scsi_host/host0/proc_name: ahci
/sys/class/scsi_host/host1/proc_name: ahci
/sys/class/scsi_host/host4/proc_name: sym53c8xx
/sys/class/scsi_device/0:0:0:0/device/driver/module: sd_mod
/sys/class/scsi_device/0:0:0:0/device/scsi_generic/sg0/dev: 21:0
/sys/class/scsi_device/4:0:1:0/device/driver/module: sd_mod
/sys/class/scsi_device/4:0:1:0/device/scsi_generic/sg1/dev: 21:1
/sys/class/scsi_device/4:0:14:0/device/type: 3
/sys/class/scsi_device/4:0:14:0/device/scsi_generic/sg2/dev: 21:2)";

struct kernel_scsi_test : testing::Test {
    test_host host;
    fake_kernel kernel;
    agent_config config = {};
    scripted_enclosure enclosure{4, 2, 1, 1};
    uint8_t status = 0;
    uint16_t host_status = 0;
    std::vector<std::string> commands;
    uint32_t timeout_ms = 0;

    kernel_scsi_test() {
        kernel.set_last_error = [this](uint32_t code) { host.last_error = code; };
        kernel.add(MACHINE);
        kernel.nodes["/dev/sg2"].scsi = [this](sg_request *request) { return answer(request); };
        scsi_host = &kernel_scsi;
        config_in_force = &config;
    }
    ~kernel_scsi_test() override {
        EXPECT_TRUE(kernel.open_nodes.empty()) << "nodes left open";
        safte_reset();
        EXPECT_EQ(host.blocks, 0);
        scsi_host = nullptr;
        config_in_force = nullptr;
    }

    bool answer(sg_request *request) {
        std::string cdb(reinterpret_cast<char *>(request->cdb), request->cdb_length);
        commands.push_back(hex(cdb));
        timeout_ms = request->timeout_ms;
        request->status = status;
        request->host_status = host_status;
        std::optional<scsi_answer> reply = enclosure.answer(cdb);
        if (!reply) return false;
        memcpy(request->data, reply->data.data(), std::min<size_t>(reply->data.size(), request->data_length));
        return true;
    }

    names walk() {
        names found;
        scsi_scan *scan = nullptr;
        for (const char *name = find_first_scsi_dev(&scan); name != nullptr; name = find_next_scsi_dev(scan))
            found.emplace_back(name);
        end_scsi_scan(scan);
        return found;
    }

    // What an INQUIRY of the enclosure fails with.
    std::string send() {
        scsi_dev *device = nullptr;
        uint8_t reply[96] = {};
        const uint8_t block[] = {0x12, 0, 0, 0, 96, 0};
        EXPECT_EQ(open_scsi_dev(&device, "scsi2:00:0E:00"), nullptr);
        std::string failure =
            noted_failure(gen_scsi_cmd(device, block, sizeof block, 0, reply, sizeof reply));
        close_scsi_dev(device);
        return failure;
    }
};

} // namespace

TEST_F(kernel_scsi_test, finds_what_no_driver_is_bound_to) {
    EXPECT_EQ(walk(), names{"scsi2:00:0E:00"});
    EXPECT_EQ(host.count_logged("Device is already claimed by a class driver"), 2);
    EXPECT_TRUE(host.logged(-1, "Opening device \\\\.\\scsi3:"));
    EXPECT_EQ(host.count_logged("Error"), 0);
}

TEST_F(kernel_scsi_test, finds_nothing_where_there_is_no_scsi) {
    kernel.files.clear();
    EXPECT_EQ(walk(), names{});
    EXPECT_EQ(host.count_logged("Error"), 0);
    EXPECT_EQ(host.last_error, 2U);
}

TEST_F(kernel_scsi_test, orders_devices_by_their_numbers) {
    kernel.files.clear();
    kernel.add("/sys/class/scsi_host/host0/proc_name: x");
    for (const char *device : {"0:1:0:0", "0:0:10:0", "0:0:2:0", "0:0:2:1", "1:0:0:0"})
        kernel.files["/sys/class/scsi_device/" + std::string(device) + "/device/type"] = "3";
    EXPECT_EQ(walk(), (names{"scsi0:00:02:00", "scsi0:00:02:01", "scsi0:00:0A:00", "scsi0:01:00:00"}));
}

TEST_F(kernel_scsi_test, leaves_out_what_has_no_place_in_a_byte) {
    kernel.files.clear();
    kernel.add("/sys/class/scsi_host/host0/proc_name: x");
    for (const char *device : {"0:0:256:0", "0:0:0:256", "0:64:0:0", "0:63:255:255", "0:0:x:0"})
        kernel.files["/sys/class/scsi_device/" + std::string(device) + "/device/type"] = "3";
    EXPECT_EQ(walk(), names{"scsi0:3F:FF:FF"});
    for (const char *device : {"0:0:256:0", "0:0:0:256", "0:64:0:0"})
        EXPECT_TRUE(host.logged(0, std::string("SCSI device ") + device +
                                       " is left out: its address does not fit into a name"));
}

TEST_F(kernel_scsi_test, leaves_claimed_ones_out_of_a_list_that_is_too_long) {
    kernel.files.clear();
    kernel.add("/sys/class/scsi_host/host0/proc_name: x");
    for (int target = 0; target < 200; target++)
        kernel.files["/sys/class/scsi_device/0:0:" + std::to_string(target) + ":0/device/driver"] = "";
    kernel.files["/sys/class/scsi_device/0:0:200:0/device/type"] = "3";
    EXPECT_EQ(walk(), names{"scsi0:00:C8:00"});
    EXPECT_EQ(host.count_logged("already claimed"), 0);
}

TEST_F(kernel_scsi_test, says_when_even_unclaimed_ones_are_too_many) {
    kernel.files.clear();
    kernel.add("/sys/class/scsi_host/host7/proc_name: x");
    for (int target = 0; target < 200; target++)
        kernel.files["/sys/class/scsi_device/7:0:" + std::to_string(target) + ":0/device/type"] = "3";
    EXPECT_EQ(walk().size(), 169U);
    EXPECT_TRUE(host.logged(2, "SCSI host 7 has 200 unclaimed devices, of which 169 are looked at"));
}

TEST_F(kernel_scsi_test, offers_and_checks_an_enclosure) {
    devtree root = {};
    EXPECT_SUCCESS(scan_safte(&root));
    devtree *top = root.children;
    ASSERT_NE(top, nullptr);
    top->parent = nullptr;
    EXPECT_STREQ(top->children->id, "scsi2:00:0E:00");
    EXPECT_EQ(commands, (names{"12 00 00 00 60 00", "3C 01 00 00 00 00 00 00 40 00"}));
    EXPECT_EQ(timeout_ms, 2000U);
    EXPECT_EQ(kernel.open_writable, 2U);
    resnode result = {};
    enclosure.status[1] = 2;
    EXPECT_SUCCESS(check_safte(top->children->children->next->devices, &result));
    EXPECT_STREQ(result.comment, "Fan not present");
    heap_free(result.comment);
    free_devtree(top);
}

TEST_F(kernel_scsi_test, fails_where_the_device_fails) {
    status = 2;
    EXPECT_EQ(send(), "gen_scsi_cmd(): system error 0");
    EXPECT_EQ(commands.size(), 2U);
}

TEST_F(kernel_scsi_test, fails_where_the_device_is_not_reached) {
    host_status = 1;
    EXPECT_EQ(send(), "gen_scsi_cmd(): system error 5");
}

TEST_F(kernel_scsi_test, fails_where_the_node_cannot_be_had) {
    kernel.nodes["/dev/sg2"].open_error = 13;
    EXPECT_EQ(send(), "gen_scsi_cmd(): system error 13");
    kernel.remove("/sys/class/scsi_device/4:0:14:0/device/scsi_generic");
    EXPECT_EQ(send(), "gen_scsi_cmd(): system error 6");
}

TEST_F(kernel_scsi_test, fails_where_the_kernel_refuses_the_command) {
    enclosure.failing = {bytes("12")};
    host.last_error = 1;
    EXPECT_EQ(send(), "gen_scsi_cmd(): system error 1");
}

TEST_F(kernel_scsi_test, opens_no_other_path) {
    for (const char *path :
         {"", "scsi0:", "\\\\.\\scsi:", "\\\\.\\scsi0", "\\\\.\\scsi0:x", "\\\\.\\scsi3:"}) {
        host.last_error = 0;
        EXPECT_EQ(kernel_scsi_open(path, 0), nullptr) << path;
        EXPECT_EQ(host.last_error, 2U);
    }
}

TEST_F(kernel_scsi_test, needs_memory) {
    int refused = 0;
    for (uint32_t n = 1; refused < 100; n++) {
        host.fail_allocation = n;
        scsi_adapter *adapter = kernel_scsi_open("\\\\.\\scsi0:", 0);
        if (adapter != nullptr) {
            kernel_scsi_close(adapter);
            break;
        }
        EXPECT_EQ(host.last_error, 12U);
        refused++;
    }
    EXPECT_EQ(refused, 4);
    host.fail_allocation = 0;
    scsi_adapter *adapter = kernel_scsi_open("\\\\.\\scsi0:", 0);
    uint8_t table[INQUIRY_TABLE_SIZE];
    uint32_t returned = 0;
    for (uint32_t n = 1; n <= 4; n++) {
        host.fail_allocation = n;
        EXPECT_FALSE(kernel_scsi_control(adapter, 0x4100C, nullptr, 0, table, sizeof table, &returned));
        EXPECT_EQ(host.last_error, 12U);
    }
    EXPECT_TRUE(kernel_scsi_control(adapter, 0x4100C, nullptr, 0, table, sizeof table, &returned));
    EXPECT_EQ(returned, INQUIRY_TABLE_SIZE);
    kernel_scsi_close(adapter);
}

TEST_F(kernel_scsi_test, takes_two_controls_in_their_sizes) {
    scsi_adapter *adapter = kernel_scsi_open("\\\\.\\scsi2:", 0);
    uint8_t buffer[INQUIRY_TABLE_SIZE] = {};
    uint32_t returned = 0;
    EXPECT_FALSE(kernel_scsi_control(adapter, 0x4100C, nullptr, 0, buffer, 2047, &returned));
    EXPECT_EQ(host.last_error, 22U);
    EXPECT_FALSE(kernel_scsi_control(adapter, 0x4D004, buffer, 56, buffer, 188, &returned));
    EXPECT_EQ(host.last_error, 22U);
    EXPECT_FALSE(kernel_scsi_control(adapter, 0x4D014, buffer, 56, buffer, 188, &returned));
    EXPECT_EQ(host.last_error, 25U);
    kernel_scsi_close(adapter);
}

TEST_F(kernel_scsi_test, takes_a_command_from_other_bytes_than_its_answer) {
    scsi_adapter *adapter = kernel_scsi_open("\\\\.\\scsi2:", 0);
    uint8_t block[PASS_THROUGH_SIZE];
    uint8_t buffer[188] = {};
    uint32_t returned = 0;
    encode_pass_through({.target = 14,
                         .cdb_length = 6,
                         .data_in = true,
                         .transfer_length = 96,
                         .timeout_s = 2,
                         .data_offset = 92,
                         .cdb = {0x12, 0, 0, 0, 96, 0}},
                        block);
    EXPECT_TRUE(kernel_scsi_control(adapter, 0x4D004, block, 56, buffer, sizeof buffer, &returned));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buffer) + 92 + 44, 6), "SAF-TE");
    EXPECT_EQ(buffer[12], 96);
    kernel_scsi_close(adapter);
}
