#include "state/log_rotation.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/version.h"
#include "platform/waits.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

static constexpr const char *PATH = "/var/log/agent.log";
static constexpr int64_t DAY = 86400;

class log_rotation : public testing::Test {
protected:
    test_host host;
    char logfile[32];
    agent_config config = {};

    void SetUp() override {
        strcpy(logfile, PATH);
        config.logfile = logfile;
        config.log_days = 7;
        config.max_log_files = 5;
        config_in_force = &config;
        log_rotation_reset();
        host.write_file("/var/log/other", "");
        ASSERT_NE(log_open(PATH), NO_FILE);
        log_set_level(LOG_NORMAL);
    }
    void TearDown() override {
        config_in_force = nullptr;
        EXPECT_EQ(host.blocks, 0);
    }

    std::string old(int number) const {
        return host.read_file(PATH + ("." + std::to_string(number) + ".txt"));
    }
    void write_old(int number, const std::string &content) {
        host.write_file(PATH + ("." + std::to_string(number) + ".txt"), content);
    }

    // The lines of a log file, their times left out.
    static std::string lines(const std::string &content) {
        std::string all;
        for (size_t at = 0; at < content.size(); at = content.find('\n', at) + 1)
            all += (all.empty() ? "" : "|") + content.substr(at + 26, content.find('\n', at) - at - 26);
        return all;
    }
    void grow_old() {
        log_check_rotate();
        host.now += config.log_days * DAY + 1;
    }
    static std::string reopened() {
        return std::string("Tarnix ") + version_text + " Agent reopened logfile...";
    }
};

TEST_F(log_rotation, waits_until_the_log_is_too_old) {
    log_check_rotate();
    host.now += 7 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.read_file(PATH), "");
    EXPECT_EQ(reopen_log_flag, 0);
    host.now += 1;
    log_check_rotate();
    EXPECT_EQ(lines(old(1)), "Re-opening log...|Closing logfile");
}

TEST_F(log_rotation, says_what_it_does) {
    grow_old();
    log_check_rotate();
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Re-opening log..."));
    EXPECT_TRUE(host.logged(LOG_WARNING, "Closing logfile"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, reopened()));
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
    EXPECT_EQ(host.count_logged("Error"), 0);
    EXPECT_EQ(host.open_files.size(), 1U);
}

TEST_F(log_rotation, counts_the_age_of_the_new_log_afresh) {
    grow_old();
    log_check_rotate();
    host.now += 7 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 1);
    host.now += 1;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 2);
}

// A host whose files keep the age of an earlier one of the same name has to be told, ahead of the new log.
TEST_F(log_rotation, restarts_the_age_of_the_log_between_the_rename_and_the_opening) {
    static std::vector<std::string> steps;
    steps.clear();
    static const files_ops *wrapped;
    wrapped = files_host;
    files_ops recording = *files_host;
    recording.MoveFileA = [](const char *from, const char *to) {
        if (from == std::string(PATH)) steps.push_back("rename");
        return wrapped->MoveFileA(from, to);
    };
    recording.restart_age = [](const char *path) { steps.push_back(std::string("restart ") + path); };
    recording.open = [](const char *path, file_mode mode) {
        steps.push_back("open");
        return wrapped->open(path, mode);
    };
    grow_old();
    files_host = &recording;
    log_check_rotate();
    files_host = wrapped;
    EXPECT_EQ(steps, (std::vector<std::string>{"rename", std::string("restart ") + PATH, "open"}));
}

TEST_F(log_rotation, counts_from_the_creation_of_the_log) {
    host.now += 7 * DAY + 1; // it was made a week before the first check
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 1);
}

TEST_F(log_rotation, counts_from_the_first_sight_where_no_creation_is_known) {
    host.keeps_creation_times = false;
    host.now += 30 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 0);
    host.now += 7 * DAY + 1;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 1);
}

TEST_F(log_rotation, counts_from_now_where_the_log_cannot_be_looked_at) {
    host.broken["open"][PATH] = 13;
    host.now += 30 * DAY;
    log_check_rotate();
    EXPECT_TRUE(host.logged(LOG_ERROR, "Could not get log creation time, defaulting to now"));
    host.broken.clear();
    host.now += 7 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 0);
    EXPECT_EQ(host.count_logged("Could not get"), 1);
}

TEST_F(log_rotation, is_off_with_0_days_or_0_files) {
    for (auto [days, files] : {std::pair{0, 5}, {7, 0}, {0, 0}}) {
        config.log_days = days;
        config.max_log_files = files;
        host.now += 1000 * DAY;
        log_check_rotate();
    }
    EXPECT_EQ(host.count_logged("Re-opening"), 0);
}

TEST_F(log_rotation, is_not_hurried_by_very_many_days) {
    config.log_days = INT32_MAX;
    host.now += 1000 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 0);
}

TEST_F(log_rotation, reopens_without_renaming_where_it_is_off) {
    for (auto [days, files] : {std::pair{0, 5}, {7, 0}}) {
        config.log_days = days;
        config.max_log_files = files;
        reopen_log_flag = 1;
        log_check_rotate();
        EXPECT_EQ(reopen_log_flag, 0);
    }
    EXPECT_EQ(lines(host.read_file(PATH)), "Re-opening log...|Closing logfile|" + reopened() +
                                               "|Re-opening log...|Closing logfile|" + reopened());
    EXPECT_EQ(old(1), "");
}

TEST_F(log_rotation, renames_nothing_with_one_file_and_counts_afresh) {
    config.max_log_files = 1;
    grow_old();
    log_check_rotate();
    EXPECT_EQ(lines(host.read_file(PATH)), "Re-opening log...|Closing logfile|" + reopened());
    host.now += 7 * DAY;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 1);
}

TEST_F(log_rotation, never_happens_on_the_console) {
    log_to_stderr();
    grow_old();
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 0);
    EXPECT_EQ(reopen_log_flag, 1); // and waits
}

TEST_F(log_rotation, happens_at_once_when_it_is_asked_for) {
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(lines(old(1)), "Re-opening log...|Closing logfile");
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
}

TEST_F(log_rotation, happens_once_more_where_it_is_asked_for_meanwhile) {
    files_ops asking = *files_host;
    const files_ops *real = files_host;
    asking.restart_age = [](const char *) { reopen_log_flag = 1; };
    files_host = &asking;
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(reopen_log_flag, 1) << "whoever asked may have moved the new file";
    files_host = real;
    log_check_rotate();
    EXPECT_EQ(host.count_logged("Re-opening"), 2);
    EXPECT_EQ(reopen_log_flag, 0);
}

TEST_F(log_rotation, moves_the_family_up_and_drops_the_oldest) {
    config.max_log_files = 3;
    write_old(1, "one");
    write_old(2, "two");
    write_old(3, "three");
    write_old(4, "not of the family");
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(lines(old(1)), "Re-opening log...|Closing logfile");
    EXPECT_EQ(old(2), "one");
    EXPECT_EQ(old(3), "two");
    EXPECT_EQ(old(4), "not of the family");
}

TEST_F(log_rotation, takes_gaps_in_the_family) {
    write_old(2, "two");
    write_old(4, "four");
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_FALSE(host.has_file("/var/log/agent.log.2.txt"));
    EXPECT_EQ(old(3), "two");
    EXPECT_EQ(old(5), "four");
    EXPECT_EQ(host.count_logged("Error"), 0);
}

TEST_F(log_rotation, tells_that_the_log_was_not_renamed_and_goes_on_with_it) {
    host.broken["rename"][PATH] = 13;
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_TRUE(
        host.logged(LOG_NORMAL, "Error rotating logfiles: Rename failed with error: system error 13"));
    EXPECT_EQ(lines(host.read_file(PATH)),
              "Re-opening log...|Closing logfile|" + reopened() +
                  "|Error rotating logfiles: Rename failed with error: system error 13");
}

TEST_F(log_rotation, leaves_the_renames_to_who_has_moved_the_log) {
    write_old(1, "one");
    ASSERT_TRUE(files_host->MoveFileA(PATH, "/var/log/moved"));
    host.write_file(PATH, "");
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(lines(host.read_file("/var/log/moved")), "Re-opening log...|Closing logfile");
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
    EXPECT_EQ(old(1), "one");
}

static const files_ops *files_elsewhere;
static bool facts_on_another_volume(const char *path, file_facts *out) {
    bool found = files_elsewhere->facts_at(path, out);
    out->volume++;
    return found;
}

TEST_F(log_rotation, takes_a_file_of_another_volume_for_another_file) {
    files_elsewhere = files_host;
    files_ops files = *files_host;
    files.facts_at = facts_on_another_volume;
    files_host = &files;
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(old(1), "");
}

TEST_F(log_rotation, leaves_the_renames_to_who_has_moved_the_log_and_made_none) {
    write_old(1, "one");
    ASSERT_TRUE(files_host->MoveFileA(PATH, "/var/log/moved"));
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
    EXPECT_EQ(old(1), "one");
    EXPECT_EQ(host.count_logged("Error"), 0);
}

TEST_F(log_rotation, starts_a_new_log_where_the_old_one_was_deleted) {
    log_check_rotate();
    ASSERT_TRUE(files_host->DeleteFileA(PATH));
    agent_log(LOG_NORMAL, "into the open file");
    EXPECT_FALSE(host.has_file(PATH));
    host.now += 7 * DAY + 1;
    log_check_rotate();
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
}

static int opens;
static int opens_to_fail;
static const files_ops *files_below;
static host_file failing_open(const char *path, file_mode mode) {
    if (mode != FILE_APPEND) return files_below->open(path, mode);
    return ++opens <= opens_to_fail ? NO_FILE : files_below->open(path, mode);
}

class log_retries : public log_rotation {
protected:
    files_ops failing;

    void fail_opens(int count) {
        files_below = files_host;
        failing = *files_host;
        failing.open = failing_open;
        files_host = &failing;
        opens = 0;
        opens_to_fail = count;
        reopen_log_flag = 1;
        log_check_rotate();
    }
};

TEST_F(log_retries, try_the_log_again_after_ten_seconds) {
    fail_opens(2);
    EXPECT_EQ(opens, 3);
    EXPECT_EQ(host.sleeps, (std::vector<uint32_t>{10000, 10000}));
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
}

TEST_F(log_retries, reach_up_to_the_sixth_attempt) {
    fail_opens(5);
    EXPECT_EQ(opens, 6);
    EXPECT_EQ(host.sleeps.size(), 5U);
    EXPECT_EQ(lines(host.read_file(PATH)), reopened());
}

TEST_F(log_retries, end_in_silence_until_the_next_time) {
    fail_opens(100);
    EXPECT_EQ(opens, 6);
    EXPECT_EQ(host.sleeps.size(), 5U);
    EXPECT_EQ(log_stream(), NO_FILE);
    EXPECT_EQ(reopen_log_flag, 0);
    opens_to_fail = 0;
    reopen_log_flag = 1;
    log_check_rotate();
    EXPECT_NE(log_stream(), NO_FILE);
    EXPECT_TRUE(host.logged(LOG_NORMAL, reopened()));
}

TEST_F(log_retries, are_cut_short_by_a_stop) {
    uint32_t index;
    waitable *stop = waits_host->CreateEventA(false, false);
    add_wakeup_event(stop, &index);
    host.wait_answers = {0, 0, 0, 0, 0};
    int64_t before = host.now;
    fail_opens(100);
    EXPECT_EQ(host.now, before);
    waits_host->CloseHandle(stop);
}

TEST(rotate_logs, renames_nothing_below_two_files) {
    test_host host;
    host.write_file("/x", "log");
    for (int32_t count : {1, 0, -5})
        EXPECT_SUCCESS(rotate_logs("/x", count));
    EXPECT_EQ(host.read_file("/x"), "log");
}

TEST(rotate_logs, keeps_the_whole_name) {
    test_host host;
    host.write_file("/a.b.log", "log");
    EXPECT_SUCCESS(rotate_logs("/a.b.log", 2));
    EXPECT_EQ(host.read_file("/a.b.log.1.txt"), "log");
    EXPECT_FALSE(host.has_file("/a.b.log"));
}

TEST(rotate_logs, fails_where_there_is_no_log) {
    test_host host;
    host.error_words[2] = "No such file or directory";
    EXPECT_FAILURE(rotate_logs("/x", 2), "Rename failed with error: No such file or directory");
}

TEST(rotate_logs, fails_when_memory_is_out) {
    test_host host;
    host.last_error = 12;
    for (uint32_t n = 1; n <= 5; n++) {
        host.write_file("/x", "log");
        host.files.erase("/x.1.txt");
        host.fail_allocation = n;
        EXPECT_FAILURE(rotate_logs("/x", 5),
                       "Rename failed with error: system error " + std::to_string(n == 1 ? 12 : 2));
        EXPECT_EQ(host.read_file("/x"), "log") << n;
        EXPECT_EQ(host.blocks, 0) << n;
    }
    EXPECT_SUCCESS(rotate_logs("/x", 5));
}
