#include "platform/agent_log.h"
#include "probes/hw/scripted_channel.h"
#include "sim/scenario.h"

#include <algorithm>

// A host with a BMC: what it offers, and what becomes of readings while the service behind it comes and goes.

namespace {

struct bmc_watch : scenario {
    scripted_channel channel;
    little_bmc &bmc = channel.bmc;

    bmc_watch() {
        channel.keeps_steps = false;
        bmc.add({.number = 0x31, .entity = 3, .base_unit = 1, .m = 2, .text = "CPU Temp"});
        bmc.readings[0x31] = {{0, 20, 0xC0, 0}};
        bmc.add(
            {.type = 2, .number = 2, .entity = 4, .sensor_type = 13, .reading_type = 0x6F, .text = "Bay"});
        bmc.readings[2] = {{0, 0, 0xC0, 1, 0}};
    }
    // The channel stays up to the end of the process, and so does what it holds.
    void TearDown() override {
        sim.kill_agent();
        scenario::TearDown();
    }
    void begin_watch() {
        begin({{"ipmisens",
                {},
                {{"E03", {}, {{"I01", {}, {{"S01", {wire::real("00:31", 60)}}}}}},
                 {"E04", {}, {{"I01", {}, {{"S0D", {wire::bitmap("00:02:6F", 60, {2, 3})}}}}}},
                 {"chassisstatus", {wire::bitmap("drivefault", 60, {1})}}}}});
    }
    static constexpr const char *TEMPERATURE = "ipmisens/E03/I01/S01/00:31";
};

} // namespace

TEST_F(bmc_watch, offers_sensors_and_delivers_their_readings) {
    begin_watch();
    ASSERT_TRUE(checkins(2));
    std::vector<std::string> offered = wire::device_paths(server.tree());
    for (const char *path :
         {TEMPERATURE, "ipmisens/E04/I01/S0D/00:02:6F", "ipmisens/chassisstatus/drivefault"})
        EXPECT_EQ(std::count(offered.begin(), offered.end(), path), 1) << path;
    ASSERT_FALSE(server.results(TEMPERATURE).empty());
    for (const wire::result &result : server.results(TEMPERATURE)) {
        EXPECT_EQ(result.status, 0U);
        EXPECT_EQ(result.real, 40);
    }
    const wire::result bay = server.results("ipmisens/E04/I01/S0D/00:02:6F").back();
    EXPECT_EQ(bay.value, 0);
    EXPECT_EQ(bay.comment, "Disk OK");
    EXPECT_EQ(server.results("ipmisens/chassisstatus/drivefault").back().comment, "Drives are OK");
}

TEST_F(bmc_watch, loses_one_reading_to_a_restart_of_the_service) {
    begin_watch();
    ASSERT_TRUE(checkins(1));
    channel.statuses["ExecMethod"] = {0x80041033};
    ASSERT_TRUE(checkins(3)); // one ahead of the checks, one with the failure, one behind it
    std::vector<wire::result> failed;
    for (const wire::result &result : server.results())
        if (result.status == 3) failed.push_back(result);
    ASSERT_EQ(failed.size(), 1U);
    EXPECT_EQ(failed[0].comment, "Unable to execute method: WMI restarted. Must re-connect to server");
    EXPECT_EQ(server.results(TEMPERATURE).back().status, 0U);
}

TEST_F(bmc_watch, finds_a_bmc_that_went_away_at_the_next_scan_alone) {
    begin_watch();
    ASSERT_TRUE(checkins(1));
    channel.statuses["ExecMethod"] = {0x80041033};
    channel.class_namespaces.clear();
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.results(TEMPERATURE).back().status, 3U);
    EXPECT_EQ(server.results(TEMPERATURE).back().comment, "Cannot read sensor: No BMCs initialized");
    channel.class_namespaces = {"ROOT\\WMI"};
    server.scan_wanted = true;
    server.changed = true;
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.results(TEMPERATURE).back().status, 0U);
}
