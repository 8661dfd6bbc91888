// The kernel's own side: its layouts, with its answers scripted, and what this machine really has.
#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/hw/kernel_smart.h"
#include "probes/hw/raid.h"
#include "probes/hw/safte.h"
#include "probes/hw/sg_io_linux.h"
#include "probes/hw/smart.h"
#include "settings/settings.h"

#include <cerrno>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

const kernel_ops &kernel = kernel_ops_host;

unsigned long last_code;
sg_io_hdr_t last_header;
IOCTL_Command_struct last_command;
int last_node;

struct scripted_controls : testing::Test {
    ~scripted_controls() override { device_control_in_force = kernel_control; }
};

int answer_sg(int node, unsigned long code, void *argument) {
    auto *header = static_cast<sg_io_hdr_t *>(argument);
    last_node = node;
    last_code = code;
    last_header = *header;
    header->status = 2;
    header->host_status = 7;
    header->driver_status = 8;
    header->sb_len_wr = 4;
    memcpy(header->sbp, "\x72\x01\x00\x1D", 4);
    if (header->dxferp != nullptr) memset(header->dxferp, 'd', 3);
    header->resid = 93;
    return 0;
}

int answer_ciss(int node, unsigned long code, void *argument) {
    auto *command = static_cast<IOCTL_Command_struct *>(argument);
    last_node = node;
    last_code = code;
    last_command = *command;
    command->error_info.CommandStatus = 1;
    command->error_info.SenseLen = 200; // more than there is
    command->error_info.SenseInfo[31] = 0x55;
    memset(command->buf, 'r', 2);
    return 0;
}

int refuse(int, unsigned long, void *) {
    errno = EPERM;
    return -1;
}

} // namespace

TEST_F(scripted_controls, take_a_scsi_command_as_the_kernel_lays_it_out) {
    device_control_in_force = answer_sg;
    uint8_t data[96] = {};
    sg_request request = {
        .cdb = {0x12, 0, 0, 0, 96}, .cdb_length = 6, .data = data, .data_length = 96, .timeout_ms = 2000};
    ASSERT_TRUE(kernel.send_scsi(17, &request));
    EXPECT_EQ(last_node, 17);
    EXPECT_EQ(last_code, static_cast<unsigned long>(SG_IO));
    EXPECT_EQ(last_header.interface_id, 'S');
    EXPECT_EQ(last_header.dxfer_direction, SG_DXFER_FROM_DEV);
    EXPECT_EQ(last_header.cmd_len, 6);
    EXPECT_EQ(last_header.cmdp, request.cdb);
    EXPECT_EQ(last_header.dxferp, data);
    EXPECT_EQ(last_header.dxfer_len, 96U);
    EXPECT_EQ(last_header.mx_sb_len, 64);
    EXPECT_EQ(last_header.timeout, 2000U);
    EXPECT_EQ(request.status, 2);
    EXPECT_EQ(request.host_status, 7);
    EXPECT_EQ(request.driver_status, 8);
    EXPECT_EQ(request.sense_length, 4U);
    EXPECT_EQ(request.sense[3], 0x1D);
    EXPECT_EQ(request.transferred, 3U);
    EXPECT_EQ(data[2], 'd');
}

TEST_F(scripted_controls, take_a_command_without_data) {
    device_control_in_force = answer_sg;
    sg_request request = {.cdb = {0x85}, .cdb_length = 16, .timeout_ms = 1};
    ASSERT_TRUE(kernel.send_scsi(3, &request));
    EXPECT_EQ(last_header.dxfer_direction, SG_DXFER_NONE);
    EXPECT_EQ(last_header.dxfer_len, 0U);
    EXPECT_EQ(request.transferred, 0U);
}

TEST_F(scripted_controls, take_a_ciss_command_for_the_controller_itself) {
    device_control_in_force = answer_ciss;
    uint8_t data[528] = {};
    ciss_passthru request = {
        .cdb = {0x26, 0, 0, 0, 0, 0, 0x11}, .cdb_length = 10, .data = data, .data_length = 528};
    ASSERT_TRUE(kernel.send_ciss(9, &request));
    EXPECT_EQ(last_node, 9);
    EXPECT_EQ(last_code, static_cast<unsigned long>(CCISS_PASSTHRU));
    uint8_t zeros[8] = {};
    EXPECT_EQ(memcmp(&last_command.LUN_info, zeros, 8), 0);
    EXPECT_EQ(last_command.Request.CDBLen, 10);
    EXPECT_EQ(last_command.Request.Type.Type, TYPE_CMD);
    EXPECT_EQ(last_command.Request.Type.Attribute, ATTR_SIMPLE);
    EXPECT_EQ(last_command.Request.Type.Direction, XFER_READ);
    EXPECT_EQ(last_command.Request.CDB[0], 0x26);
    EXPECT_EQ(last_command.Request.CDB[6], 0x11);
    EXPECT_EQ(last_command.buf_size, 528);
    EXPECT_EQ(last_command.buf, data);
    EXPECT_EQ(request.command_status, 1);
    EXPECT_EQ(request.sense_length, 32U);
    EXPECT_EQ(request.sense[31], 0x55);
    EXPECT_EQ(data[1], 'r');
}

TEST_F(scripted_controls, fail_with_the_reason_of_the_kernel) {
    device_control_in_force = refuse;
    uint8_t data[8];
    sg_request scsi = {.cdb_length = 6, .data = data, .data_length = 8};
    EXPECT_FALSE(kernel.send_scsi(3, &scsi));
    EXPECT_EQ(errno, EPERM);
    ciss_passthru ciss = {.cdb_length = 10, .data = data, .data_length = 8};
    EXPECT_FALSE(kernel.send_ciss(3, &ciss));
}

TEST(kernel_ops_host, refuses_commands_to_what_is_no_device) {
    temp_folder folder;
    std::string path = folder.path + "/file";
    std::ofstream(path) << "x";
    kernel_node node = kernel.open_node(path.c_str(), NODE_READ_WRITE);
    ASSERT_NE(node, NO_NODE);
    uint8_t data[8];
    sg_request scsi = {.cdb_length = 6, .data = data, .data_length = 8};
    EXPECT_FALSE(kernel.send_scsi(node, &scsi));
    EXPECT_EQ(errno, ENOTTY);
    ciss_passthru ciss = {.cdb_length = 10, .data = data, .data_length = 8};
    EXPECT_FALSE(kernel.send_ciss(node, &ciss));
    errno = 4711;
    kernel.close_node(node);
    EXPECT_EQ(errno, 4711);
}

TEST(kernel_ops_host, opens_a_disk_for_reading_alone) {
    temp_folder folder;
    std::string path = folder.path + "/file";
    std::ofstream(path) << "x";
    for (node_access access : {NODE_READ, NODE_READ_WRITE}) {
        kernel_node node = kernel.open_node(path.c_str(), access);
        EXPECT_EQ(write(static_cast<int>(node), "y", 1), access == NODE_READ ? -1 : 1);
        kernel.close_node(node);
    }
    EXPECT_EQ(kernel.open_node("/no/such/node", NODE_READ), NO_NODE);
    EXPECT_EQ(errno, ENOENT);
}

TEST(kernel_ops_host, reads_files_and_folders) {
    temp_folder folder;
    std::ofstream(folder.path + "/b") << "text\n";
    std::ofstream(folder.path + "/.hidden") << "";
    char buffer[64] = "";
    EXPECT_EQ(kernel.read_source((folder.path + "/b").c_str(), buffer, sizeof buffer), 5);
    EXPECT_EQ(std::string(buffer, 5), "text\n");
    EXPECT_EQ(kernel.read_source((folder.path + "/").c_str(), buffer, sizeof buffer), 2);
    EXPECT_EQ(std::string(buffer, 2), "b\n");
    EXPECT_EQ(kernel.read_source((folder.path + "/").c_str(), buffer, 2), 2) << "there may be more";
    EXPECT_EQ(kernel.read_source("/no/such/file", buffer, sizeof buffer), -1);
    EXPECT_EQ(kernel.read_source("/no/such/folder/", buffer, sizeof buffer), -1);
    EXPECT_TRUE(kernel.exists(folder.path.c_str()));
    EXPECT_FALSE(kernel.exists("/no/such/file"));
    kernel.set_last_error(ENXIO);
    EXPECT_EQ(errno, ENXIO);
}

// Whatever hardware there is, nothing fails and nothing is left behind.
TEST(this_host, is_scanned_without_a_failure) {
    test_host host;
    agent_config config = {};
    config_in_force = &config;
    error_host = &error_ops_host;
    kernel_host = &kernel_ops_host;
    smart_host = &smart_ops_host;
    scsi_host = &scsi_ops_host;
    raid_host = &raid_ops_host;
    devtree root = {};
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_SUCCESS(scan_safte(&root));
    const char *failure = scan_raid(&root);
    EXPECT_TRUE(failure == nullptr || raid_controller_count > 0) << failure;
    EXPECT_EQ(host.count_logged("Error scanning SCSI devices"), 0);
    free_devtree(root.children);
    close_controllers();
    kernel_smart_reset();
    safte_reset();
    EXPECT_EQ(host.blocks, 0);
    config_in_force = nullptr;
}
