#include "sim/scenario.h"

static std::vector<wire::group> hardware_checks() {
    return {
        {"smart", {wire::bitmap("PhysicalDrive0", 60, {0, 1, 2})}},
        {"safte",
         {},
         {{"scsi0:00:06:00",
           {},
           {{"slot", {wire::bitmap("0", 60, {0, 1, 1, 2})}}, {"fan", {wire::bitmap("0", 60, {0, 2, 1})}}}}}},
        {"csmiplus",
         {},
         {{"cntrl:0", {}, {{"logical", {}, {{"lv:0", {wire::bitmap("cciss:status", 60, {0, 2})}}}}}}}}};
}

// An agent on a host with a drive, an enclosure and a RAID controller.
struct hardware : scenario {
    hardware() { sim.hardware.present = true; }
    void begin_all() { begin(hardware_checks()); }
};

TEST_F(hardware, is_offered) {
    begin_all();
    std::vector<std::string> found;
    for (const std::string &path : wire::device_paths(server.tree()))
        if (path.starts_with("smart/") || path.starts_with("safte/") || path.starts_with("csmiplus/"))
            found.push_back(path);
    EXPECT_EQ(found, (std::vector<std::string>{"smart/PhysicalDrive0", "safte/scsi0:00:06:00/slot/0",
                                               "safte/scsi0:00:06:00/fan/0",
                                               "csmiplus/cntrl:0/logical/lv:0/cciss:status"}));
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

// One life of such an agent, in which the call of this number fails.
struct hardware_run {
    scripted_server server;
    host_sim sim;

    explicit hardware_run(uint64_t fail_at) {
        sim.add_server(server);
        sim.hardware.present = true;
        sim.calls.fail_at = fail_at;
        sim.calls.tracing = fail_at == 0;
        server.checks = hardware_checks();
        sim.start_agent();
    }

    bool live() {
        return sim.run_until([&] { return server.acknowledged >= 4; }, HOUR) && sim.agent_runs();
    }
};

static std::vector<uint64_t> calls_to_devices() {
    hardware_run quiet(0);
    EXPECT_TRUE(quiet.live());
    std::vector<uint64_t> calls;
    for (const std::string &line : quiet.sim.calls.trace) {
        size_t number = line.find('#');
        bool device = line.find(" CreateFileA ") != std::string::npos ||
                      line.find(" DeviceIoControl ") != std::string::npos;
        if (number != std::string::npos && device) calls.push_back(std::stoull(line.substr(number + 1)));
    }
    EXPECT_TRUE(quiet.sim.stop_agent());
    return calls;
}

// Whichever call to a device fails, once: checks go on, nothing stays open but the controller, and nothing is
// lost.
TEST(hardware_failure, of_any_call_is_survived) {
    std::vector<uint64_t> calls = calls_to_devices();
    ASSERT_GT(calls.size(), 100U);
    for (size_t i = 0; i < calls.size(); i++) {
        hardware_run run(calls[i]);
        ASSERT_TRUE(run.live()) << calls[i];
        EXPECT_LE(run.sim.hardware.open_devices, 1) << run.sim.calls.failed_about;
        EXPECT_TRUE(run.sim.stop_agent());
        EXPECT_EQ(run.sim.exit_status, 0);
        EXPECT_EQ(run.sim.blocks_at_end, 0U) << run.sim.calls.failed_about;
    }
}
