#include "sim/log_scenario.h"

#include <algorithm>
#include <functional>

// A log that other programs write, rotate and lose, on its way to the server line by line.

using log_follow = log_scenario;

TEST_F(log_follow, reports_each_new_line_and_none_that_was_there_before) {
    follow_app();
    append("one\ntwo\n");
    settle();
    append("three\n");
    settle();
    EXPECT_EQ(entries(), (texts{"one", "two", "three"}));
}

TEST_F(log_follow, reports_with_the_time_and_the_status_of_the_rule) {
    follow_app({{.regex = "'bad'", .status = 2, .decision = REPORT}, REPORT_ALL});
    int64_t written = sim.wall_time();
    append("bad thing\n");
    settle();
    ASSERT_EQ(entries(), texts{"bad thing"});
    wire::result result = log_results(server, APP).front();
    EXPECT_EQ(result.status, 2U);
    EXPECT_GE(result.time, written);
    EXPECT_LE(result.time, written + PERIOD);
}

TEST_F(log_follow, tells_of_each_checkin_that_it_ran_where_nothing_was_written) {
    follow_app();
    size_t before = server.results("log//" + std::string(APP)).size();
    ASSERT_TRUE(checkins(3));
    std::vector<wire::result> results = server.results("log//" + std::string(APP));
    ASSERT_EQ(results.size(), before + 3);
    EXPECT_EQ(results.back().status, 0U);
    EXPECT_EQ(results.back().text, "");
}

TEST_F(log_follow, reads_a_log_that_comes_later_from_its_start) {
    sim.disk.remove(APP);
    follow_app();
    EXPECT_TRUE(sim.logged_part("Error checking log./.var.log.app\\.log: Could not open log file \"" +
                                std::string(APP) + "\": "));
    sim.disk.put(APP, "first\n");
    settle();
    EXPECT_EQ(entries(), texts{"first"});
}

// ---- rotation

TEST_F(log_follow, goes_on_in_the_new_file_behind_a_rename) {
    follow_app();
    append(numbered_lines("old", 1, 20));
    settle();
    sim.disk.rename(APP, std::string(APP) + ".1");
    sim.disk.put(APP, "new 1\n");
    settle();
    texts expected = numbered_entries("old", 1, 20);
    expected.push_back("new 1");
    EXPECT_EQ(entries(), expected);
    EXPECT_TRUE(sim.logged(1, "Rotation of log file '/var/log/app.log' detected (smaller than before)"));
}

TEST_F(log_follow, sees_a_rename_behind_which_the_new_file_has_outgrown_the_old_one) {
    follow_app();
    append("short\n");
    settle();
    sim.disk.rename(APP, std::string(APP) + ".1");
    sim.disk.put(APP, numbered_lines("new", 1, 40));
    settle();
    texts expected = numbered_entries("new", 1, 40);
    expected.insert(expected.begin(), "short");
    EXPECT_EQ(entries(), expected);
    EXPECT_TRUE(
        sim.logged(1, "Rotation of log file '/var/log/app.log' detected (content changes at beginning)"));
}

TEST_F(log_follow, goes_on_behind_a_copy_and_truncation) {
    follow_app();
    append(numbered_lines("old", 1, 5));
    settle();
    sim.disk.put(std::string(APP) + ".1", sim.disk.get(APP));
    sim.disk.overwrite(APP, "");
    settle();
    append(numbered_lines("new", 1, 5));
    settle();
    texts expected = numbered_entries("old", 1, 5);
    for (const std::string &entry : numbered_entries("new", 1, 5))
        expected.push_back(entry);
    EXPECT_EQ(entries(), expected);
}

TEST_F(log_follow, sees_a_replacement_of_equal_length_by_its_beginning) {
    follow_app();
    append("abc\n");
    settle();
    sim.disk.put(APP, "HISTORY\nABC\n");
    settle();
    EXPECT_EQ(entries(), (texts{"abc", "HISTORY", "ABC"}));
}

TEST_F(log_follow, sees_a_replacement_of_equal_length_by_its_end) {
    std::string beginning(300, '-');
    sim.disk.put(APP, beginning + "\n");
    follow_app();
    append("abc\n");
    settle();
    sim.disk.put(APP, beginning + "\nABC\n");
    settle();
    EXPECT_EQ(entries(), (texts{"abc", beginning, "ABC"}));
    EXPECT_TRUE(sim.logged(1, "Rotation of log file '/var/log/app.log' detected (content changes at end)"));
}

// A sample with such a letter does not come back from the variables.
TEST_F(log_follow, knows_the_file_behind_a_new_configuration_by_more_than_the_variables_hold) {
    wire::check seldom = followed_log(APP, HOUR, {REPORT_ALL});
    sim.disk.put(APP, "\xC3\xA4 history\n");
    follow({seldom});
    sim.disk.put(APP, "\xC3\xB6 HISTORY\n");
    seldom.frequency = 2 * HOUR;
    server.configure(log_tree({seldom})); // and so looked at again at once
    ASSERT_TRUE(checkins(3));
    EXPECT_EQ(entries(), texts{"\xC3\xB6 HISTORY"});
    EXPECT_FALSE(sim.logged_part("hex string"));
}

TEST_F(log_follow, goes_on_where_it_was_in_a_file_that_was_away) {
    follow_app();
    append("before\n");
    settle();
    sim.disk.rename(APP, "/mnt");
    sim.run_for(HOUR);
    sim.disk.rename("/mnt", APP);
    append("after\n");
    settle();
    EXPECT_EQ(entries(), (texts{"before", "after"}));
    EXPECT_FALSE(sim.logged_part("Rotation of log file"));
}

TEST_F(log_follow, gives_a_file_that_is_just_being_rotated_a_second_to_come) {
    follow_app();
    append("before\n");
    settle();
    sim.disk.rename(APP, std::string(APP) + ".1");
    size_t looks = sim.times_logged("Agent will check device app.log").size();
    // The look is under way, and finds nothing yet.
    ASSERT_TRUE(sim.run_until(
        [&] { return sim.times_logged("Agent will check device app.log").size() > looks; }, MINUTE));
    sim.disk.put(APP, "new\n");
    settle();
    EXPECT_EQ(entries(), (texts{"before", "new"}));
    EXPECT_FALSE(sim.logged_part("Could not open log file"));
}

// ---- growth

// What another program does ahead of the n-th read from now on.
struct disturbed_log : log_scenario {
    static constexpr int READS = 12; // of two checks

    void do_ahead_of_read(int n, const std::function<void()> &what) {
        int left = n;
        sim.disk.before_read = [&](const std::string &path) {
            if (path == APP && --left == 0) what();
        };
        EXPECT_TRUE(sim.run_until([&] { return left <= 0; }, MINUTE));
        sim.disk.before_read = nullptr;
        settle();
    }
};

TEST_F(disturbed_log, comes_whole_and_once_where_it_grows_between_any_two_reads) {
    sim.disk.put(APP, std::string(120, '-') + "\n");
    follow_app();
    int line = 1;
    for (int read = 1; read <= READS; read++, line += 2) {
        append(numbered_lines("line", line, 1));
        do_ahead_of_read(read, [&] { append(numbered_lines("line", line + 1, 1)); });
    }
    EXPECT_EQ(entries(), numbered_entries("line", 1, 2 * READS));
}

TEST_F(disturbed_log, comes_whole_where_it_is_renamed_between_any_two_reads) {
    follow_app();
    texts expected;
    for (int read = 1; read <= READS; read++) {
        std::string name = "round " + std::to_string(read) + " line";
        append(numbered_lines(name, 1, 30));
        do_ahead_of_read(read, [&] {
            sim.disk.rename(APP, std::string(APP) + ".1");
            sim.disk.put(APP, numbered_lines(name, 31, 20));
        });
        for (const std::string &entry : numbered_entries(name, 1, 50))
            expected.push_back(entry);
    }
    EXPECT_EQ(entries(), expected);
}

TEST_F(log_follow, holds_a_line_back_until_it_is_whole) {
    follow_app();
    append("first\nhal");
    sim.run_for(PERIOD);
    append("f of a line\n");
    settle();
    EXPECT_EQ(entries(), (texts{"first", "half of a line"}));
}

TEST_F(log_follow, takes_a_line_without_an_end_that_has_stopped_growing) {
    follow_app();
    append("half");
    sim.run_for(2 * PERIOD + 1);
    append(" and half\n");
    settle();
    EXPECT_EQ(entries(), (texts{"half", " and half"}));
}

// ---- a disk that fails for a while

TEST_F(log_follow, comes_late_but_whole_behind_a_disk_that_failed_for_a_while) {
    follow_app();
    int line = 1;
    for (const char *operation : {"open", "facts", "read", "close"}) {
        SCOPED_TRACE(operation);
        append(numbered_lines("line", line, 2));
        settle();
        sim.disk.broken[operation][APP] = 5;
        append(numbered_lines("line", line + 2, 2));
        sim.run_for(10 * MINUTE);
        sim.disk.broken.clear();
        append(numbered_lines("line", line + 4, 2));
        settle();
        line += 6;
        EXPECT_EQ(entries(), numbered_entries("line", 1, line - 1));
    }
    EXPECT_TRUE(sim.logged_part("Error checking log./.var.log.app\\.log: Could not open log file \"" +
                                std::string(APP) + "\": "));
}

// ---- a long log

struct long_log : log_scenario {
    static constexpr int CHUNKS = 200;

    // One line in each 16 kB is reported; the disk takes a second for each read.
    long_log() {
        server.checkin_frequency = 30;
        sim.disk.before_read = [this](const std::string &path) {
            if (path == APP) sim.scheduler.sleep_until(sim.scheduler.now_ms + 1000);
        };
    }
    static std::vector<wire::rule> needles() {
        return {{.regex = "'needle'", .status = 0, .decision = REPORT}};
    }
    void append_long() {
        std::string filler(127, 'x');
        std::string text;
        for (int chunk = 1; chunk <= CHUNKS; chunk++) {
            text += numbered_lines("needle", chunk, 1);
            for (int i = 0; i < 128; i++)
                text += filler + "\n";
        }
        append(text);
    }
    int64_t longest_pause_since(size_t delivery) const {
        int64_t longest = 0;
        for (size_t i = delivery; i < server.deliveries.size(); i++)
            longest = std::max(longest, server.deliveries[i].time - server.deliveries[i - 1].time);
        return longest;
    }
};

TEST_F(long_log, is_left_for_each_checkin_and_gone_on_with_behind_it) {
    follow_app(needles());
    size_t deliveries = server.deliveries.size();
    append_long();
    sim.run_for(15 * MINUTE);
    EXPECT_EQ(entries(), numbered_entries("needle", 1, CHUNKS));
    EXPECT_LE(longest_pause_since(deliveries), 30 + 3);
    EXPECT_GT(server.deliveries.size(), deliveries + 10);
    EXPECT_FALSE(sim.logged_part("Rotation of log file"));
}

TEST_F(long_log, goes_on_under_a_new_configuration_where_the_old_one_was) {
    follow_app(needles());
    append_long();
    sim.run_for(2 * MINUTE);
    size_t had = entries().size();
    EXPECT_GT(had, 10U);
    EXPECT_LT(had, size_t{CHUNKS});
    server.configure(log_tree({app({{.regex = "'needle [0-9]*5$'", .status = 2, .decision = REPORT}})}));
    sim.run_for(15 * MINUTE);
    std::vector<wire::result> results = log_results(server, APP);
    // Under the old rules all up to some line, under the new ones each tenth from there on.
    size_t old_ones = 0;
    while (old_ones < results.size() && results[old_ones].status == 0)
        old_ones++;
    texts expected = numbered_entries("needle", 1, static_cast<int>(old_ones));
    for (int i = static_cast<int>(old_ones) + 1; i <= CHUNKS; i++)
        if (i % 10 == 5) expected.push_back("needle " + std::to_string(i));
    EXPECT_GE(old_ones, had);
    EXPECT_LT(old_ones, size_t{CHUNKS});
    EXPECT_EQ(entries(), expected);
}

// ---- too large

TEST_F(log_follow, parks_a_log_whose_place_cannot_be_told_and_takes_it_up_when_it_can) {
    follow_app();
    append("before\n");
    settle();
    sim.disk.broken["tell"][APP] = 5;
    settle();
    sim.run_for(HOUR);
    EXPECT_EQ(sim.count_logged("File '/var/log/app.log' too large, not checking further entries."), 1);
    EXPECT_EQ(entries().back(), "Log file is too large, not checking further entries.");
    EXPECT_EQ(log_results(server, APP).back().status, 2U);
    sim.disk.broken.clear();
    sim.disk.overwrite(APP, "after\n");
    settle();
    texts all = entries();
    EXPECT_EQ(texts(all.end() - 2, all.end()),
              (texts{"Log file truncated, once again checking entries.", "after"}));
    EXPECT_TRUE(sim.logged(3, "File '/var/log/app.log' truncated, once again checking entries."));
}

TEST_F(log_follow, leaves_a_log_parked_over_a_restart_until_it_is_small) {
    follow_app();
    sim.disk.broken["tell"][APP] = 5;
    settle();
    stop();
    sim.disk.broken.clear();
    sim.disk.overwrite(APP, std::string(33'554'432, 'x'));
    size_t before = entries().size();
    sim.start_agent();
    sim.run_for(10 * MINUTE);
    EXPECT_EQ(entries().size(), before);
    sim.disk.overwrite(APP, "small\n");
    settle();
    texts all = entries();
    EXPECT_EQ(texts(all.begin() + static_cast<ptrdiff_t>(before), all.end()),
              (texts{"Log file truncated, once again checking entries.", "small"}));
}
