#include "sim/scenario.h"

// An agent on a host with a drive, an enclosure and a RAID controller.
struct hardware : scenario {
    hardware() { sim.hardware.present = true; }

    void begin_all() {
        begin(
            {{"smart", {wire::bitmap("PhysicalDrive0", 60, {0, 1, 2})}},
             {"safte",
              {},
              {{"scsi0:00:06:00",
                {},
                {{"slot", {wire::bitmap("0", 60, {0, 1, 1, 2})}},
                 {"fan", {wire::bitmap("0", 60, {0, 2, 1})}}}}}},
             {"csmiplus",
              {},
              {{"cntrl:0", {}, {{"logical", {}, {{"lv:0", {wire::bitmap("cciss:status", 60, {0, 2})}}}}}}}}});
    }
};

TEST_F(hardware, is_offered) {
    begin_all();
    EXPECT_EQ(wire::device_paths(server.tree()),
              (std::vector<std::string>{
                  "fs//home", "fs//", "mem/virt", "mem/swap", "mem/phys", "system/uptime", "system/cswitch",
                  "system/idle", "smart/PhysicalDrive0", "safte/scsi0:00:06:00/slot/0",
                  "safte/scsi0:00:06:00/fan/0", "csmiplus/cntrl:0/logical/lv:0/cciss:status"}));
}

TEST_F(hardware, is_checked_and_judged_by_the_servers_masks) {
    begin_all();
    ASSERT_TRUE(checkins(2));
    wire::result drive = server.results("smart/PhysicalDrive0").back();
    EXPECT_EQ(drive.value, 0);
    EXPECT_EQ(drive.comment, "Drive is OK");
    EXPECT_EQ(drive.status, 0U);
    EXPECT_EQ(server.results("safte/scsi0:00:06:00/slot/0").back().comment, "Disk OK");
    EXPECT_EQ(server.results("safte/scsi0:00:06:00/fan/0").back().comment, "Fan operational");
    EXPECT_EQ(server.results("csmiplus/cntrl:0/logical/lv:0/cciss:status").back().comment,
              "Logical device OK");

    sim.hardware.drive_value = 50;
    sim.hardware.fan_status = 1;
    sim.hardware.volume_state = 1;
    ASSERT_TRUE(checkins(3));
    drive = server.results("smart/PhysicalDrive0").back();
    EXPECT_EQ(drive.value, 2);
    EXPECT_EQ(drive.comment, "Drive is about to fail");
    EXPECT_EQ(drive.status, 2U);
    EXPECT_EQ(server.results("safte/scsi0:00:06:00/fan/0").back().status, 2U);
    EXPECT_EQ(server.results("csmiplus/cntrl:0/logical/lv:0/cciss:status").back().status, 2U);
    EXPECT_EQ(sim.hardware.open_devices, 1) << "the controller alone stays open";
}

TEST_F(hardware, that_goes_away_is_a_failed_check) {
    begin_all();
    ASSERT_TRUE(checkins(1));
    sim.hardware.present = false;
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.results("smart/PhysicalDrive0").back().status, 3U);
    EXPECT_EQ(server.results("safte/scsi0:00:06:00/fan/0").back().status, 3U);
}

TEST_F(hardware, is_not_touched_where_smart_is_disabled) {
    sim.settings["disable_smart"] = "true";
    begin_all();
    ASSERT_TRUE(checkins(2));
    EXPECT_EQ(server.results("smart/PhysicalDrive0").back().comment, "SMART disabled on agent");
    EXPECT_EQ(sim.count_logged("Will look at device"), 0);
}
