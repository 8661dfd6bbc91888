#include "launcher/supervisor.h"

#include "launcher/launcher_world.h"
#include "launcher/program_folder.h"

#include <gtest/gtest.h>

namespace {

using lines = std::vector<std::string>;

enum : uint8_t { UPGRADE = 1, ALIVE = 2 };

class supervisor : public testing::Test {
protected:
    supervisor() { put("tnagent", "old"); }

    int run(std::vector<const char *> agent_words = {}) {
        agent_words.push_back(nullptr);
        return supervise("/usr/bin/tnagent", agent_words.data());
    }
    void put(const std::string &name, const std::string &content) { world.host.write_file(name, content); }
    std::string content(const std::string &name) const { return world.host.read_file(name); }
    // When the n-th start came, counted from 0.
    int64_t start_at(size_t number) const {
        for (const std::string &call : world.calls)
            if (call.ends_with(" start") && number-- == 0) return std::stoll(call);
        return -1;
    }
    // An agent that ends in order when it is told to, behind a stop of the host.
    void stop() {
        world.host_stops(0, true);
        world.agent_ends(0);
    }

    launcher_world world;
};

const char *const PLAIN_START = "tnagent --parent-pipes 13 14";
const char *const START_BEHIND_FAILURE = "tnagent --parent-pipes 13 14 --upgrade-failed";

} // namespace

TEST_F(supervisor, starts_the_agent_on_two_pipes_with_its_own_arguments) {
    stop();
    EXPECT_EQ(run({"-f", "/etc/my.conf"}), 0);
    EXPECT_EQ(world.starts, lines{"tnagent --parent-pipes 13 14 -f /etc/my.conf"});
}

TEST_F(supervisor, keeps_the_agents_ends_to_nobody_but_the_agent) {
    stop();
    run();
    EXPECT_EQ(lines(world.calls.begin(), world.calls.begin() + 3),
              (lines{"5000 start", "5000 close 13", "5000 close 14"}));
}

// Stop

TEST_F(supervisor, tells_the_agent_to_end_when_the_host_stops_it) {
    world.host_stops(1000);
    world.agent_ends(0, PATIENCE_MS); // in the last moment
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("say 0"), 6000);
    EXPECT_EQ(world.called_at("kill"), -1);
    EXPECT_EQ(world.starts.size(), 1U);
    EXPECT_TRUE(world.has_told(false, "has ended"));
}

TEST_F(supervisor, closes_the_pipe_of_an_agent_that_does_not_end) {
    world.host_stops();
    world.agent_ends(0, PATIENCE_MS + LAST_PATIENCE_MS);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("say 0"), 5000);
    EXPECT_EQ(world.called_at("close 12"), 5000 + PATIENCE_MS);
    EXPECT_EQ(world.called_at("kill"), -1);
}

TEST_F(supervisor, kills_an_agent_that_does_not_end_at_all) {
    world.host_stops();
    world.agent_ends(137, PATIENCE_MS + LAST_PATIENCE_MS + 1);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("kill"), 5000 + PATIENCE_MS + LAST_PATIENCE_MS);
    EXPECT_TRUE(world.has_told(true, "the agent does not end: it is killed"));
}

TEST_F(supervisor, closes_the_pipe_at_once_where_it_takes_no_byte) {
    world.writes_fail = true;
    stop();
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("close 12"), 5000);
}

TEST_F(supervisor, presses_no_harder_for_a_second_stop) {
    world.host_stops();
    world.host_stops(1000);
    world.agent_ends(0, PATIENCE_MS - 1000);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(std::count(world.calls.begin(), world.calls.end(), "5000 say 0"), 1);
    EXPECT_EQ(world.called_at("say 0"), 5000);
    EXPECT_EQ(world.called_at("kill"), -1);
}

TEST_F(supervisor, ends_in_a_pause_at_once) {
    world.agent_ends(1);
    world.host_stops(500);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.now_ms, 5500);
    EXPECT_EQ(world.starts.size(), 1U);
}

// Bytes

TEST_F(supervisor, ignores_bytes_that_mean_nothing) {
    for (auto byte : std::initializer_list<uint8_t>{0, 3, 255})
        world.agent_says(byte);
    stop();
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.starts.size(), 1U);
}

TEST_F(supervisor, waits_for_an_agent_that_has_closed_its_pipe) {
    world.pipe_ends();
    world.host_stops(1000);
    world.agent_ends(0);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("close 11"), 5000);
    EXPECT_EQ(world.called_at("say 0"), 6000);
}

// Crashes

TEST_F(supervisor, starts_an_agent_again_that_has_ended) {
    for (int status : {0, 1, 139}) {
        world.agent_ends(status);
        stop();
        EXPECT_EQ(run(), 0);
        EXPECT_TRUE(world.has_told(true, "the agent has ended with status " + std::to_string(status)));
    }
    EXPECT_EQ(world.starts, lines(6, PLAIN_START));
}

TEST_F(supervisor, doubles_the_pause_up_to_five_minutes) {
    for (int i = 0; i < 11; i++)
        world.agent_ends(1);
    stop();
    run();
    int64_t expected_s[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300};
    for (size_t i = 0; i < std::size(expected_s); i++)
        EXPECT_EQ(start_at(i + 1) - start_at(i), expected_s[i] * 1000) << i;
    EXPECT_TRUE(world.has_told(false, "next start in 300 s"));
}

TEST_F(supervisor, begins_with_the_short_pause_behind_a_long_life) {
    world.agent_ends(1);
    world.agent_ends(1, LONG_LIFE_MS - 1);
    world.agent_ends(1, LONG_LIFE_MS);
    stop();
    run();
    EXPECT_EQ(start_at(2) - start_at(1), LONG_LIFE_MS - 1 + 2000);
    EXPECT_EQ(start_at(3) - start_at(2), LONG_LIFE_MS + 1000);
}

TEST_F(supervisor, begins_with_the_short_pause_behind_a_proof) {
    world.agent_ends(1);
    world.agent_says(ALIVE);
    world.agent_ends(1);
    stop();
    run();
    EXPECT_EQ(start_at(2) - start_at(1), 1000);
    EXPECT_EQ(world.starts, lines(3, PLAIN_START)); // and a proof outside a trial changes no file
    EXPECT_EQ(world.operations, 0);
}

// Upgrades

TEST_F(supervisor, takes_an_upgrade_when_the_agent_has_ended) {
    world.agent_says(UPGRADE);
    world.agent_ends(0, 3000, [this] { put("upgrade", "new"); });
    world.agent_says(ALIVE, 10);
    stop();
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.called_at("say 0"), 5000); // the agent waits for it
    EXPECT_EQ(start_at(1), 8000);              // no pause
    EXPECT_EQ(world.programs, (lines{"old", "new"}));
    EXPECT_EQ(world.starts, lines(2, PLAIN_START));
    EXPECT_EQ(content("tnagent.bak"), "old");
    EXPECT_FALSE(world.host.has_file("trial"));
    EXPECT_TRUE(world.has_told(false, "an upgrade is ready: the agent is to end"));
    EXPECT_TRUE(world.has_told(false, "the new program works: the upgrade is over"));
}

TEST_F(supervisor, leaves_the_program_alone_until_the_agent_has_ended) {
    put("upgrade", "new");
    world.host.files.erase("upgrade");
    world.agent_says(UPGRADE);
    world.agent_ends(0, 3000, [this] {
        EXPECT_EQ(content("tnagent"), "old");
        put("upgrade", "new");
    });
    stop();
    run();
    EXPECT_EQ(content("tnagent"), "new");
}

TEST_F(supervisor, kills_an_agent_that_announces_an_upgrade_and_stays) {
    put("tnagent", "old");
    world.agent_says(UPGRADE);
    world.agent_ends(137, PATIENCE_MS + LAST_PATIENCE_MS + 1, [this] { put("upgrade", "new"); });
    stop();
    run();
    EXPECT_EQ(world.called_at("kill"), 5000 + PATIENCE_MS + LAST_PATIENCE_MS);
    EXPECT_EQ(world.programs, (lines{"old", "new"}));
}

TEST_F(supervisor, takes_an_upgrade_that_nobody_has_announced_at_the_next_start) {
    world.agent_ends(139, 0, [this] { put("upgrade", "new"); });
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"old", "new"}));
    EXPECT_EQ(start_at(1) - start_at(0), 1000);
}

TEST_F(supervisor, pauses_behind_an_announced_upgrade_that_is_not_there) {
    world.agent_says(UPGRADE);
    world.agent_ends(0);
    stop();
    run();
    EXPECT_EQ(start_at(1) - start_at(0), 1000);
    EXPECT_EQ(world.programs, (lines{"old", "old"}));
}

TEST_F(supervisor, goes_back_at_once_from_a_program_that_dies_unproven) {
    put("upgrade", "bad");
    world.agent_ends(0, 50);
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"bad", "old"}));
    EXPECT_EQ(world.starts, (lines{PLAIN_START, START_BEHIND_FAILURE}));
    EXPECT_EQ(start_at(1) - start_at(0), 50);
    EXPECT_TRUE(world.has_told(true, "the agent has ended with status 0"));
}

TEST_F(supervisor, goes_back_from_a_program_that_cannot_be_started) {
    put("upgrade", "bad");
    world.failing_starts = 1;
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"bad", "old"}));
    EXPECT_EQ(world.starts, (lines{PLAIN_START, START_BEHIND_FAILURE}));
    EXPECT_EQ(start_at(1), start_at(0));
    EXPECT_TRUE(world.has_told(true, "cannot start the agent: system error 8"));
}

TEST_F(supervisor, tells_the_failure_of_an_upgrade_to_one_start_alone) {
    put("upgrade", "bad");
    world.agent_ends(1);
    world.agent_ends(1);
    stop();
    run();
    EXPECT_EQ(world.starts, (lines{PLAIN_START, START_BEHIND_FAILURE, PLAIN_START}));
}

TEST_F(supervisor, tells_the_failure_of_an_upgrade_to_the_start_that_succeeds) {
    put("upgrade", "bad");
    world.failing_starts = 2;
    stop();
    run();
    EXPECT_EQ(world.starts, (lines{PLAIN_START, START_BEHIND_FAILURE, START_BEHIND_FAILURE}));
}

TEST_F(supervisor, tells_a_further_upgrade_nothing_of_the_failed_one) {
    put("upgrade", "bad");
    world.agent_ends(1, 0, [this] { put("upgrade", "new"); });
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"bad", "new"}));
    EXPECT_EQ(world.starts, lines(2, PLAIN_START));
    EXPECT_EQ(content("tnagent.bak"), "old");
}

TEST_F(supervisor, goes_back_from_no_program_that_has_proven_itself) {
    put("upgrade", "new");
    world.agent_says(ALIVE);
    world.agent_ends(139);
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"new", "new"}));
    EXPECT_EQ(world.starts, lines(2, PLAIN_START));
}

TEST_F(supervisor, proves_a_program_once) {
    put("upgrade", "new");
    world.agent_says(ALIVE);
    world.agent_says(ALIVE);
    stop();
    run();
    EXPECT_EQ(std::count(world.told.begin(), world.told.end(),
                         std::pair(false, std::string("the new program works: the upgrade is over"))),
              1);
}

TEST_F(supervisor, goes_back_from_no_program_that_has_a_further_upgrade) {
    put("upgrade", "new");
    world.agent_says(UPGRADE);
    world.agent_ends(0, 0, [this] { put("upgrade", "newer"); });
    world.agent_says(ALIVE);
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"new", "newer"}));
    EXPECT_EQ(content("tnagent.bak"), "old");
}

TEST_F(supervisor, pauses_where_going_back_fails) {
    put("upgrade", "bad");
    world.agent_ends(1, 0, [this] { world.host.broken["rename"]["tnagent.bak"] = 5; });
    stop();
    run();
    EXPECT_EQ(world.programs, (lines{"bad", "bad"}));
    EXPECT_EQ(start_at(1) - start_at(0), 1000);
}

TEST_F(supervisor, goes_on_where_the_end_of_a_trial_cannot_be_kept) {
    put("upgrade", "new");
    world.at_start = [this] { world.host.broken["rename"]["trial"] = 5; };
    world.agent_says(ALIVE);
    stop();
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(world.has_told(true, "cannot rename trial to trial.tmp: system error 5"));
    EXPECT_EQ(content("tnagent"), "new");
}

TEST_F(supervisor, goes_on_with_a_trial_behind_a_stop) {
    put("upgrade", "new");
    for (int i = 0; i < 2 * TRIAL_STARTS; i++) {
        stop();
        EXPECT_EQ(run(), 0);
    }
    EXPECT_EQ(world.programs, lines(2 * TRIAL_STARTS, "new"));
    EXPECT_EQ(content("trial"), "0");
}

TEST_F(supervisor, counts_a_trial_that_did_not_stop_in_order) {
    put("upgrade", "new");
    for (int i = 0; i < TRIAL_STARTS + 1; i++) {
        world.host_stops();
        world.agent_ends(137);
        EXPECT_EQ(run(), 0);
    }
    EXPECT_EQ(world.programs, (lines{"new", "new", "new", "old"}));
    EXPECT_EQ(world.starts.back(), START_BEHIND_FAILURE);
}

TEST_F(supervisor, takes_no_stop_for_a_failure_of_the_upgrade) {
    put("upgrade", "new");
    stop();
    run();
    EXPECT_EQ(content("tnagent"), "new");
    EXPECT_EQ(content("tnagent.bak"), "old");
}

TEST_F(supervisor, ends_where_a_stop_comes_upon_an_upgrade) {
    world.agent_says(UPGRADE);
    world.host_stops(10);
    world.agent_ends(0, 10, [this] { put("upgrade", "new"); });
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.programs, lines{"old"});
    EXPECT_EQ(content("upgrade"), "new"); // for the next launcher
}

// Failing calls

TEST_F(supervisor, does_not_begin_without_a_program) {
    world.host.files.clear();
    EXPECT_EQ(run(), 1);
    EXPECT_TRUE(world.has_told(true, "there is no program to start"));
}

TEST_F(supervisor, waits_for_a_program_that_has_gone) {
    world.agent_ends(1, 0, [this] { world.host.files.clear(); });
    world.host_stops(1500);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(world.starts.size(), 1U);
    EXPECT_EQ(world.now_ms, 6500); // in the second pause
}

TEST_F(supervisor, pauses_where_the_program_cannot_be_started) {
    world.failing_starts = 2;
    stop();
    run();
    EXPECT_EQ(start_at(1) - start_at(0), 1000);
    EXPECT_EQ(start_at(2) - start_at(1), 2000);
    EXPECT_EQ(content("tnagent"), "old");
}

TEST_F(supervisor, pauses_where_there_are_no_pipes) {
    world.pipes_break = true;
    world.host_stops(500);
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(world.has_told(true, "cannot make pipes: system error 24"));
    EXPECT_TRUE(world.starts.empty());
}

TEST_F(supervisor, pauses_where_memory_is_out) {
    world.host.fail_allocation = 1;
    stop();
    EXPECT_EQ(run(), 0);
    EXPECT_TRUE(world.has_told(true, "cannot start the agent: out of memory"));
    EXPECT_EQ(start_at(0), 6000);
}
