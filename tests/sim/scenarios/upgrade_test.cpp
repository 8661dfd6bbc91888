#include "sim/scenario.h"

#include <set>

static constexpr const char *PLACED = "/var/lib/tarnix/program/upgrade";
static constexpr const char *SHUTTING_DOWN = "Agent shutting down.";

// An agent that may fetch upgrades, held by a launcher.
struct self_upgrade : scenario {
    self_upgrade() {
        sim.settings["allow_autoupgrade"] = "true";
        server.package = std::string(5000, 'n') + "ew";
        sim.disk.make_folders(PLACED);
    }

    void start() { sim.start_agent({"--parent-pipes", SIM_PARENT_READ, SIM_PARENT_WRITE}); }
    bool logs(const std::string &part) {
        return sim.run_until([&] { return sim.logged_part(part); }, DAY);
    }
    // The package is in place, and the agent waits for its launcher.
    void make_ready() {
        server.upgrade_available = true;
        start();
        ASSERT_TRUE(logs("Download complete"));
        sim.run_for(10);
    }
    void expect_end(const std::string &line) {
        ASSERT_TRUE(sim.run_until([&] { return sim.exit_status.has_value(); }, HOUR));
        EXPECT_EQ(sim.exit_status, 0);
        ASSERT_FALSE(sim.log.empty());
        EXPECT_TRUE(sim.log.back().text.ends_with(line)) << sim.log.back().text;
    }
};

TEST_F(self_upgrade, is_fetched_placed_and_told_and_waits_for_the_launcher) {
    make_ready();
    EXPECT_EQ(sim.disk.get(PLACED), server.package);
    EXPECT_TRUE(sim.disk.names[PLACED]->executable);
    EXPECT_FALSE(sim.disk.has("download.tmp"));
    EXPECT_EQ(sim.launcher.reports, "\x02\x01");
    EXPECT_TRUE(sim.logged(1, "Server has an upgrade, downloading ..."));
    EXPECT_TRUE(sim.logged(1, std::string("Placing new Agent executable at ") + PLACED));
    EXPECT_TRUE(sim.logged(1, "Download complete"));
    sim.run_for(DAY);
    EXPECT_TRUE(sim.agent_runs()) << "the launcher has not answered";
    sim.launcher.orders.push_back(0);
    expect_end("Attempting automatic upgrade");
    EXPECT_FALSE(sim.logged_part(SHUTTING_DOWN));
    EXPECT_EQ(sim.blocks_at_end, 0U);
}

TEST_F(self_upgrade, outlives_a_power_cut_once_it_is_placed) {
    make_ready();
    sim.cut_power();
    EXPECT_EQ(sim.disk.get(PLACED), server.package);
}

TEST_F(self_upgrade, ends_with_the_line_of_a_stop_when_the_launcher_dies) {
    make_ready();
    sim.launcher.gone = true;
    expect_end(SHUTTING_DOWN);
    EXPECT_FALSE(sim.logged_part("Attempting automatic upgrade"));
}

TEST_F(self_upgrade, does_not_wait_for_a_silent_launcher_behind_a_signal) {
    make_ready();
    sim.signal_stop();
    expect_end(SHUTTING_DOWN);
}

TEST_F(self_upgrade, whose_exit_crosses_the_launchers_stop_is_still_one) {
    server.upgrade_available = true;
    start();
    // The order is read while the agent is still closing down, or behind that, by the seed.
    ASSERT_TRUE(sim.run_until([&] { return sim.launcher.reports.ends_with("\x01"); }, DAY));
    sim.launcher.orders.push_back(0);
    expect_end("Attempting automatic upgrade");
}

TEST_F(self_upgrade, without_a_launcher_ends_at_once_and_leaves_the_file) {
    server.upgrade_available = true;
    sim.start_agent();
    expect_end("Attempting automatic upgrade");
    EXPECT_EQ(sim.disk.get(PLACED), server.package);
    EXPECT_TRUE(sim.logged_part("WriteFile failed: "));
    EXPECT_TRUE(sim.logged(3, "WriteFile returned 0"));
}

TEST_F(self_upgrade, that_is_not_allowed_is_told_and_not_fetched) {
    sim.settings["allow_autoupgrade"] = "false";
    server.upgrade_available = true;
    start();
    ASSERT_TRUE(checkins(3));
    EXPECT_TRUE(sim.logged(0, "Server has upgrade, but i am not allowed to download it"));
    EXPECT_EQ(server.count_messages("upgrade_req"), 0U);
    EXPECT_EQ(sim.launcher.reports, "\x02");
}

TEST_F(self_upgrade, goes_on_beside_checks_and_checkins) {
    server.upgrade_available = true;
    server.bends.push_back({.at = server_step::UPGRADE_RESP, .kind = bend_kind::DELAY, .amount = 550});
    server.checks = {{"mem", {wire::continuous("phys", 10)}}};
    start();
    ASSERT_TRUE(logs("Download complete"));
    EXPECT_EQ(server.count_messages("upgrade_req"), 1U) << "offers behind the first change nothing";
    EXPECT_GE(server.checkins, 9U);
    EXPECT_GE(server.results("mem/phys").size(), 50U);
}

TEST_F(self_upgrade, of_more_than_ten_megabytes_fails_and_is_tried_again) {
    server.upgrade_available = true;
    server.package = std::string(10'485'761, 'x');
    start();
    ASSERT_TRUE(logs("Download failed"));
    EXPECT_FALSE(sim.disk.has(PLACED));
    server.package = "good";
    ASSERT_TRUE(logs("Download complete"));
    EXPECT_EQ(sim.disk.get(PLACED), "good");
}

TEST_F(self_upgrade, holds_nothing_of_an_earlier_try) {
    sim.disk.put("download.tmp", std::string(6000, 'o'));
    make_ready();
    EXPECT_EQ(sim.disk.get(PLACED), server.package);
}

TEST_F(self_upgrade, that_is_cut_at_any_byte_fails_and_the_next_offer_brings_it) {
    server.package = "abc";
    for (int64_t length = 0; length < 24; length++) {
        sim.kill_agent();
        sim.log.clear();
        sim.launcher.reports.clear();
        sim.disk.remove(PLACED);
        server.upgrade_available = true;
        server.bends = {{.at = server_step::UPGRADE_RESP, .kind = bend_kind::CUT, .amount = length}};
        start();
        ASSERT_TRUE(logs("Download "));
        if (sim.logged_part("Download complete")) {
            EXPECT_GE(length, 12) << "the whole reply was let through";
            return;
        }
        EXPECT_TRUE(sim.logged(2, "Download failed"));
        EXPECT_FALSE(sim.disk.has(PLACED));
        EXPECT_EQ(sim.launcher.reports.find('\x01'), std::string::npos);
        ASSERT_TRUE(logs("Download complete")) << "cut at " << length;
        EXPECT_EQ(sim.disk.get(PLACED), "abc");
    }
    FAIL() << "no reply was let through";
}

TEST_F(self_upgrade, has_no_place_without_a_folder_of_the_program) {
    sim.program = "tnagent";
    server.upgrade_available = true;
    start();
    ASSERT_TRUE(logs("Download failed"));
    EXPECT_FALSE(sim.logged_part("Placing new Agent executable"));
}

TEST_F(self_upgrade, that_cannot_be_written_fails_and_is_made_good) {
    server.upgrade_available = true;
    for (const char *operation : {"open", "write", "sync", "close"}) {
        sim.kill_agent();
        sim.log.clear();
        sim.disk.remove(PLACED);
        sim.disk.broken = {{operation, {{"download.tmp", 28}}}};
        start();
        ASSERT_TRUE(logs("Download ")) << operation;
        EXPECT_TRUE(sim.logged(2, "Download failed")) << operation;
        EXPECT_FALSE(sim.disk.has(PLACED)) << operation;
        sim.disk.broken.clear();
        ASSERT_TRUE(logs("Download complete")) << operation;
    }
}

TEST_F(self_upgrade, that_cannot_be_made_a_program_is_not_placed) {
    server.upgrade_available = true;
    sim.disk.broken = {{"chmod", {{"download.tmp", 13}}}};
    start();
    ASSERT_TRUE(logs("Download failed"));
    EXPECT_TRUE(sim.logged(3, "Error moving file: Permission denied"));
    EXPECT_FALSE(sim.disk.has(PLACED));
}

TEST_F(self_upgrade, that_cannot_be_moved_says_why) {
    server.upgrade_available = true;
    sim.disk.broken = {{"rename", {{"download.tmp", 13}}}};
    start();
    ASSERT_TRUE(logs("Download failed"));
    EXPECT_TRUE(sim.logged(3, "Error moving file: Permission denied"));
}

// ---- the launcher's word

TEST_F(self_upgrade, a_stop_of_the_launcher_ends_the_agent_in_order) {
    start();
    ASSERT_TRUE(checkins(1));
    sim.launcher.orders = {1, 2, 255};
    ASSERT_TRUE(checkins(2));
    sim.launcher.orders = {0};
    expect_end(SHUTTING_DOWN);
    EXPECT_EQ(sim.blocks_at_end, 0U);
}

TEST_F(self_upgrade, the_end_of_the_launcher_ends_the_agent_in_order) {
    start();
    ASSERT_TRUE(checkins(1));
    sim.launcher.gone = true;
    expect_end(SHUTTING_DOWN);
}

TEST_F(self_upgrade, a_stop_of_the_launcher_ends_a_hold_between_two_registrations) {
    sim.network.place("server").state = place_state::REFUSES;
    start();
    ASSERT_TRUE(logs("On hold for"));
    sim.launcher.orders = {0};
    expect_end(SHUTTING_DOWN);
}

TEST_F(self_upgrade, proof_of_life_comes_with_the_first_acknowledged_checkin) {
    server.acknowledge = false;
    start();
    ASSERT_TRUE(sim.run_until([&] { return server.checkins >= 3; }, DAY));
    EXPECT_EQ(sim.launcher.reports, "");
    server.acknowledge = true;
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(sim.launcher.reports, "\x02");
}

TEST_F(self_upgrade, that_failed_is_told_at_the_next_start) {
    sim.start_agent({"--upgrade-failed"});
    ASSERT_TRUE(checkins(1));
    EXPECT_TRUE(sim.logged(2, "Upgrade failed, using latest working version"));
}

// Each call of the host that the upgrade makes fails once; then the upgrade comes at a later offer, or the
// failure is the process's end.
TEST_F(self_upgrade, comes_in_the_end_whatever_fails_once) {
    uint64_t first = 0;
    uint64_t last = 0;
    {
        server.upgrade_available = true;
        start();
        ASSERT_TRUE(logs("Server has an upgrade"));
        first = sim.calls.count;
        ASSERT_TRUE(logs("Download complete"));
        last = sim.calls.count;
        sim.launcher.gone = true;
        expect_end(SHUTTING_DOWN);
    }
    std::set<std::string> failed;
    for (uint64_t n = 1; n <= last - first; n++) {
        sim.launcher = {};
        sim.log.clear();
        sim.disk.remove(PLACED);
        start();
        ASSERT_TRUE(logs("Server has an upgrade"));
        sim.calls.fail_at = sim.calls.count + n;
        ASSERT_TRUE(logs("Download complete")) << "behind " << sim.calls.failed;
        failed.insert(sim.calls.failed);
        EXPECT_EQ(sim.disk.get(PLACED), server.package) << sim.calls.failed;
        sim.launcher.gone = true;
        expect_end(SHUTTING_DOWN);
    }
    EXPECT_GT(failed.size(), 8U);
}
