#include "sim/scenario.h"

using log_file = scenario;

static constexpr const char *LOG = "/var/log/tarnix/agent.log";

static std::string old_log(int number) {
    return std::string(LOG) + "." + std::to_string(number) + ".txt";
}

TEST_F(log_file, is_rotated_each_week_and_kept_five_times_over_months) {
    sim.settings["loglevel"] = "1";
    server.checkin_frequency = 3600;
    begin({{"mem", {wire::continuous("phys", 3600)}}});
    sim.run_for(90 * DAY);
    std::vector<int64_t> rotations = sim.times_logged("Re-opening log...");
    EXPECT_EQ(rotations.size(), 12U);
    for (size_t i = 1; i < rotations.size(); i++) {
        EXPECT_GT(rotations[i] - rotations[i - 1], 7 * DAY);
        EXPECT_LE(rotations[i] - rotations[i - 1], 7 * DAY + HOUR);
    }
    for (int number = 1; number <= 5; number++)
        EXPECT_TRUE(sim.disk.has(old_log(number))) << number;
    EXPECT_FALSE(sim.disk.has(old_log(6)));
}

TEST_F(log_file, begins_anew_behind_a_rotation) {
    server.checkin_frequency = 3600;
    begin({{"mem", {wire::continuous("phys", 3600)}}});
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent reopened logfile..."); }, 8 * DAY));
    EXPECT_NE(sim.disk.get(old_log(1)).find("Agent starting."), std::string::npos);
    EXPECT_EQ(sim.disk.get(old_log(1)).find("Agent reopened logfile..."), std::string::npos);
    EXPECT_NE(sim.disk.get(LOG).find("Agent reopened logfile..."), std::string::npos);
}

TEST_F(log_file, holds_lines_of_time_and_text) {
    begin({});
    EXPECT_EQ(sim.disk.get(LOG).find("Sun Sep  9 01:46:40 2001: "), 0U);
}

TEST_F(log_file, keeps_its_age_over_a_restart) {
    server.checkin_frequency = 3600;
    begin({});
    sim.run_for(5 * DAY);
    stop();
    sim.start_agent();
    sim.run_for(2 * DAY + 2 * HOUR);
    EXPECT_TRUE(sim.disk.has(old_log(1)));
}

TEST_F(log_file, is_not_rotated_with_no_days_set) {
    sim.settings["log_days"] = "0";
    server.checkin_frequency = 3600;
    begin({});
    sim.run_for(30 * DAY);
    EXPECT_FALSE(sim.disk.has(old_log(1)));
}

TEST_F(log_file, that_cannot_be_renamed_is_told_in_the_new_one) {
    server.checkin_frequency = 3600;
    begin({});
    sim.disk.broken["rename"][LOG] = 13;
    sim.run_for(8 * DAY);
    EXPECT_TRUE(sim.logged(1, "Error rotating logfiles: Rename failed with error: Permission denied"));
}

TEST_F(log_file, that_cannot_be_opened_again_is_tried_five_times_more_and_silence_stops_nothing) {
    server.checkin_frequency = 3600;
    begin({});
    sim.run_for(7 * DAY);
    sim.disk.broken["open"][LOG] = 13;
    sim.run_for(DAY);
    uint32_t before = server.checkins;
    size_t lines = sim.log.size();
    sim.run_for(DAY);
    EXPECT_EQ(server.checkins, before + 24);
    EXPECT_EQ(sim.log.size(), lines); // nothing is written, and the agent goes on
    sim.disk.broken.clear();
    sim.run_for(8 * DAY);
    EXPECT_GT(sim.log.size(), lines);
}

TEST_F(log_file, on_a_full_disk_stops_nothing) {
    begin({});
    sim.disk.broken["write"][LOG] = 28;
    ASSERT_TRUE(checkins(3));
}

TEST_F(log_file, on_the_console_is_never_rotated) {
    server.checkin_frequency = 3600;
    sim.start_agent({"-v"});
    ASSERT_TRUE(checkins(1));
    sim.run_for(10 * DAY);
    EXPECT_FALSE(sim.disk.has(LOG));
    EXPECT_FALSE(sim.logged_part("Re-opening log..."));
    EXPECT_NE(sim.console.find("Agent starting."), std::string::npos);
}

TEST_F(log_file, is_rotated_while_the_agent_cannot_register) {
    sim.settings["loglevel"] = "3";
    sim.settings["log_days"] = "1";
    sim.network.place("server").state = place_state::REFUSES;
    sim.start_agent();
    sim.run_for(2 * DAY);
    EXPECT_TRUE(sim.disk.has(old_log(1)));
}
