#include "sim/scenario.h"

// What a checkin delivers, and what becomes of it.

using delivering = scenario;

TEST_F(delivering, repeats_once_what_a_lost_reply_left_unacknowledged) {
    begin({{"mem", {wire::continuous("phys", 20)}}});
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::CLOSE_BEFORE});
    size_t lost = server.deliveries.size();
    ASSERT_TRUE(checkins(2));
    ASSERT_EQ(server.deliveries.size(), lost + 3);
    std::vector<int64_t> first;
    for (const wire::result &result : server.deliveries[lost].results)
        first.push_back(result.time);
    EXPECT_EQ(first.size(), 3U);
    std::vector<int64_t> second;
    for (const wire::result &result : server.deliveries[lost + 1].results)
        second.push_back(result.time);
    ASSERT_GE(second.size(), first.size());
    EXPECT_EQ(std::vector<int64_t>(second.begin(), second.begin() + 3), first);
    // From then on each result comes once.
    EXPECT_GT(server.deliveries[lost + 2].results.front().time, second.back());
    EXPECT_TRUE(sim.logged(2, "Reason given: \"Peer closed connection unexpectedly\""));
}

TEST_F(delivering, keeps_everything_that_is_not_acknowledged_and_tries_again_at_once) {
    begin({{"mem", {wire::continuous("phys", 20)}}});
    ASSERT_TRUE(checkins(1));
    server.acknowledge = false;
    uint32_t before = server.checkins;
    ASSERT_TRUE(sim.run_until([&] { return server.checkins == before + 3; }, HOUR));
    server.acknowledge = true;
    int64_t start = now();
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(now(), start);
    EXPECT_TRUE(sim.logged(3, "Checkin was not acknowledged by server."));
    size_t count = server.deliveries.size();
    EXPECT_EQ(server.deliveries[count - 1].results.size(), server.deliveries[count - 4].results.size());
    EXPECT_EQ(sim.count_logged("Agent failed checkin"), 0);
}

TEST_F(delivering, starts_with_fifty_results_and_allows_fifty_more_each_time) {
    server.checkin_frequency = 600;
    begin({{"mem", {wire::continuous("phys", 4)}}});
    server.bends.push_back({.at = server_step::OFFERS, .kind = bend_kind::CLOSE_BEFORE});
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    size_t first = server.deliveries.size();
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.deliveries[first].results.size(), 50U);
    EXPECT_EQ(server.deliveries[first + 1].results.size(), 100U);
    EXPECT_EQ(server.deliveries[first + 2].results.size(), 150U);
    EXPECT_TRUE(sim.logged_part("throttling to max 50"));
}

TEST_F(delivering, sends_comments_with_the_newest_result_and_conf_ids_with_the_first) {
    wire::check odd = wire::continuous("nothing", 20); // its check fails with a comment
    odd.conf_id = "conf-7";
    begin({{"mem", {odd}}});
    ASSERT_TRUE(checkins(1));
    const std::vector<wire::result> &results = server.deliveries.back().results;
    ASSERT_EQ(results.size(), 3U);
    EXPECT_EQ(results[0].comment, "");
    EXPECT_EQ(results[1].comment, "");
    EXPECT_EQ(results[2].comment, "Unknown memory type encountered: nothing");
    EXPECT_EQ(results[0].conf_id, "conf-7");
    EXPECT_EQ(results[1].conf_id, std::nullopt);
    EXPECT_EQ(results[2].status, 3U);
}

TEST_F(delivering, sends_the_results_of_several_groups_with_their_paths) {
    begin({{"mem", {wire::continuous("phys", 60)}},
           {"fs", {wire::continuous("/", 60)}, {{"deep", {wire::continuous("x", 60)}}}}});
    ASSERT_TRUE(checkins(1));
    std::vector<std::string> paths;
    for (const wire::result &result : server.deliveries.back().results)
        paths.push_back(result.path);
    EXPECT_EQ(paths, (std::vector<std::string>{"mem/phys", "fs//", "fs/deep/x"}));
}

TEST_F(delivering, tells_times_on_the_clock_of_the_server) {
    server.time_skew = 5000;
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(sim.logged(0, "Time offset is -5000"));
    EXPECT_EQ(server.times("mem/phys"), every(60, SIM_START + 5000, 2));
}

TEST_F(delivering, applies_the_status_that_the_limits_order) {
    wire::check low = wire::continuous("phys", 60);
    low.warn_low = 3 << 20; // 2 GB are free
    wire::check lower = wire::real("swap", 60);
    lower.alert_low = 9 << 20; // 8 GB are
    begin({{"mem", {low, lower, wire::continuous("virt", 60)}}});
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.results("mem/phys")[0].status, 1U);
    EXPECT_EQ(server.results("mem/swap")[0].status, 2U);
    EXPECT_EQ(server.results("mem/virt")[0].status, 0U);
}

TEST_F(delivering, reports_a_check_of_an_unknown_family_as_an_error) {
    begin({{"weather", {wire::continuous("rain", 60)}}});
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.results("weather/rain")[0].status, 3U);
    EXPECT_EQ(server.results("weather/rain")[0].comment, "Unknown device");
    EXPECT_TRUE(sim.logged(2, "Unknown device in check_device(): weather.rain"));
}

TEST_F(delivering, reports_disabled_families_as_disabled) {
    sim.settings["disable_checks"] = "mem,proc";
    begin({{"mem", {wire::continuous("phys", 60)}}});
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(server.results("mem/phys")[0].comment, "Disabled by configuration");
    EXPECT_EQ(wire::device_paths(server.tree())[2], "system/uptime");
    EXPECT_TRUE(sim.logged(2, "Scanning of mem disabled by configuration"));
}

TEST_F(delivering, sends_the_comment_with_the_last_result_that_the_limit_lets_through) {
    server.checkin_frequency = 600;
    begin({{"mem", {wire::continuous("nothing", 6)}}});
    server.bends.push_back({.at = server_step::OFFERS, .kind = bend_kind::CLOSE_BEFORE});
    ASSERT_TRUE(sim.run_until([&] { return sim.logged_part("Agent failed checkin"); }, HOUR));
    ASSERT_TRUE(checkins(1));
    const std::vector<wire::result> &results = server.deliveries.back().results;
    ASSERT_EQ(results.size(), 50U); // of more than a hundred
    EXPECT_EQ(results[48].comment, "");
    EXPECT_EQ(results[49].comment, "Unknown memory type encountered: nothing");
}

TEST_F(delivering, is_acknowledged_with_nothing_to_deliver) {
    begin({});
    ASSERT_TRUE(checkins(2));
    EXPECT_TRUE(server.deliveries.back().results.empty());
    EXPECT_TRUE(sim.logged(0, "Checking in 0 results"));
}

TEST_F(delivering, closes_its_connection_once_where_the_server_tells_no_time) {
    begin({{"mem", {wire::continuous("phys", 60)}}});
    server.bends.push_back({.at = server_step::TIME, .kind = bend_kind::CLOSE_BEFORE});
    ASSERT_TRUE(checkins(1));
    EXPECT_EQ(sim.network.vain_closes, 0U);
    EXPECT_TRUE(sim.logged(0, "Server does not support time synchronization"));
}

TEST_F(delivering, of_twenty_nine_seconds_is_told_as_detail_and_of_thirty_as_news) {
    begin({});
    server.bends.push_back({.at = server_step::TIME, .kind = bend_kind::DELAY, .amount = 29});
    server.bends.push_back(
        {.at = server_step::CHECKIN_RESP, .kind = bend_kind::DELAY, .amount = 40, .skip = 1});
    ASSERT_TRUE(checkins(3));
    sim.run_for(1);
    EXPECT_TRUE(sim.logged(0, "Checkin success, conn: 0s, setup: 29s, data: 0s, ack: 0s, finish: 0s"));
    EXPECT_TRUE(sim.logged(1, "Checkin success, conn: 0s, setup: 0s, data: 0s, ack: 40s, finish: 0s"));
}

TEST_F(delivering, counts_the_period_from_the_end_of_the_checkin) {
    begin({});
    server.bends.push_back({.at = server_step::CHECKIN_RESP, .kind = bend_kind::DELAY, .amount = 25});
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(server.deliveries[1].time, SIM_START + 60);
    EXPECT_EQ(server.deliveries[2].time, SIM_START + 60 + 25 + 60);
}

TEST_F(delivering, tells_of_an_upgrade_that_it_may_not_fetch) {
    server.upgrade_available = true;
    begin({});
    EXPECT_TRUE(sim.logged(0, "Server has upgrade, but i am not allowed to download it"));
    EXPECT_EQ(server.upgrades, 0U);
}
