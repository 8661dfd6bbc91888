// The platform's own devices. Where this host has none of a kind, opening it fails with a reason.
#include "fakes/open_handles.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/hw/raid.h"
#include "probes/hw/raid_ops.h"
#include "probes/hw/safte.h"
#include "probes/hw/scsi_layout.h"
#include "probes/hw/scsi_ops.h"
#include "probes/hw/smart.h"
#include "settings/settings.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

// A device that every host opens and that knows none of the controls.
static constexpr char NO_DRIVE[] = "\\\\.\\NUL";

TEST(smart_ops_host, opens_a_device_and_gives_its_answer) {
    smart_drive *drive = smart_ops_host.CreateFileA(NO_DRIVE, GENERIC_READ);
    ASSERT_NE(drive, nullptr);
    uint8_t block[SMART_COMMAND_SIZE] = {};
    uint8_t reply[SMART_REPLY_SIZE] = {};
    SetLastError(0);
    EXPECT_EQ(smart_ops_host.DeviceIoControl(drive, SMART_RCV_DRIVE_DATA_CODE, block, sizeof block, reply,
                                             sizeof reply),
              0);
    EXPECT_NE(GetLastError(), 0U);
    smart_ops_host.CloseHandle(drive);
    EXPECT_EQ(smart_ops_host.foreign_kind, nullptr);
}

TEST(smart_ops_host, says_where_there_is_no_drive) {
    SetLastError(0);
    EXPECT_EQ(smart_ops_host.CreateFileA("\\\\.\\PhysicalDrive4711", GENERIC_ALL), nullptr);
    EXPECT_NE(GetLastError(), 0U);
}

TEST(scsi_ops_host, opens_a_device_and_gives_its_answer) {
    scsi_adapter *adapter = scsi_ops_host.CreateFileA(NO_DRIVE, GENERIC_READ | GENERIC_WRITE);
    ASSERT_NE(adapter, nullptr);
    uint8_t table[INQUIRY_TABLE_SIZE] = {};
    uint32_t returned = 0;
    SetLastError(0);
    EXPECT_FALSE(scsi_ops_host.DeviceIoControl(adapter, IOCTL_SCSI_GET_INQUIRY_DATA_CODE, nullptr, 0, table,
                                               sizeof table, &returned));
    EXPECT_NE(GetLastError(), 0U);
    EXPECT_EQ(returned, 0U);
    scsi_ops_host.CloseHandle(adapter);
}

TEST(scsi_ops_host, ends_a_walk_where_there_is_no_port) {
    SetLastError(0);
    EXPECT_EQ(scsi_ops_host.CreateFileA("\\\\.\\scsi254:", GENERIC_READ | GENERIC_WRITE), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CODE_NO_SUCH_FILE);
}

TEST(raid_ops_host, opens_a_device_and_gives_its_answer) {
    raid_adapter *adapter = raid_ops_host.CreateFileA(NO_DRIVE, GENERIC_READ | GENERIC_WRITE);
    ASSERT_NE(adapter, nullptr);
    uint8_t block[676] = {};
    SetLastError(0);
    EXPECT_FALSE(raid_ops_host.DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT_CODE, block, sizeof block));
    EXPECT_NE(GetLastError(), 0U);
    raid_ops_host.CloseHandle(adapter);
}

// Whatever hardware there is, nothing fails and nothing is left open.
TEST(this_host, is_scanned_without_a_failure) {
    test_host host;
    agent_config config = {};
    config_in_force = &config;
    error_host = &error_ops_host;
    smart_host = &smart_ops_host;
    scsi_host = &scsi_ops_host;
    raid_host = &raid_ops_host;
    devtree root = {};
    EXPECT_SUCCESS(scan_smart_ide(&root));
    int before = count_open_handles();
    EXPECT_SUCCESS(scan_smart_ide(&root));
    EXPECT_SUCCESS(scan_safte(&root));
    EXPECT_SUCCESS(scan_raid(&root));
    close_controllers();
    EXPECT_EQ(count_open_handles(), before);
    free_devtree(root.children);
    EXPECT_EQ(host.blocks, 0);
    config_in_force = nullptr;
}
