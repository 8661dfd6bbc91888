#include "logcheck/log_follow.h"

#include "logcheck/log_fixture.h"
#include "platform/clock.h"

static bool overdue_answer;
static int overdue_questions;

class log_follow : public log_fixture {
protected:
    static constexpr const char *OFFSET = "log./.var.app\\.log";
    static constexpr const char *SIZE = "size:log./.var.app\\.log";
    static constexpr int64_t LARGEST_TAKEN_BACK = 33'554'431;

    void SetUp() override {
        log_fixture::SetUp();
        overdue_answer = false;
        overdue_questions = 0;
        checkin_overdue_hook = [] {
            overdue_questions++;
            return overdue_answer;
        };
        add_rule(file, "'.' or '^$'", LOG_ENTRY, 0);
    }

    std::string &content() { return host.files[PATH].content; }
    void write(const std::string &text) { host.write_file(PATH, text); }
    void append(const std::string &text) { content() += text; }
    log_state *state() const { return static_cast<log_state *>(file->state); }

    // Checks, and gives the entries that were reported, as "one|two"; "" for none.
    std::string check() {
        EXPECT_SUCCESS(check_log(file, nullptr));
        std::string all = results(file);
        if (all == "0") return "";
        std::string texts;
        for (size_t at = 0; at < all.size();) {
            size_t end = std::min(all.find("|0 ", at), all.size());
            texts += (texts.empty() ? "" : "|") + all.substr(at + 2, end - at - 2);
            at = end + 1;
        }
        return texts;
    }
    // The same as a new process, which has the variables alone.
    std::string check_after_restart() {
        file->state_free(file);
        file->state_free = free_no_state;
        return check();
    }
    // A file that was followed from its start on.
    void follow(const std::string &text) {
        write("");
        check();
        append(text);
    }
};

// ---- a new log

TEST_F(log_follow, reports_no_history) {
    write("old\n");
    EXPECT_EQ(check(), "");
    append("new\nnewer\n");
    EXPECT_EQ(check(), "new|newer");
    EXPECT_EQ(get(OFFSET), "14");
    EXPECT_EQ(get(SIZE), "14");
}

TEST_F(log_follow, reads_a_log_whole_that_was_missing_at_its_first_check) {
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": system error 2");
    results(file);
    write("first\n");
    EXPECT_EQ(check(), "first");
}

TEST_F(log_follow, says_where_the_end_of_a_new_log_cannot_be_found) {
    write("old\n");
    host.broken["seek"]["/"] = 29;
    EXPECT_FAILURE(check_log(file, nullptr), "Error seeking end of logfile: system error 29");
    results(file);
}

TEST_F(log_follow, tells_the_samples_that_it_starts_with) {
    write(std::string(150, 'x'));
    check();
    EXPECT_TRUE(host.logged(-1, "first_data_len is 0, and last_data_len is 0"));
    EXPECT_TRUE(host.logged(-1, "No first data stored for this file"));
    EXPECT_TRUE(host.logged(-1, "Log is not rotated"));
    check_after_restart();
    EXPECT_TRUE(host.logged(-1, "first_data_len is 100, and last_data_len is 100"));
}

// ---- opening

TEST_F(log_follow, gives_a_file_that_is_just_replaced_a_second) {
    follow("one\n");
    host.broken["open"]["/"] = 13;
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": system error 13");
    EXPECT_EQ(host.waits.size() + host.sleeps.size(), 1U);
    EXPECT_EQ(results(file), "0");
    host.broken.clear();
    EXPECT_EQ(check(), "one");
}

TEST_F(log_follow, reads_a_file_that_comes_within_that_second) {
    follow("one\n");
    check();
    host.files.erase(PATH);
    static clock_ops clock;
    clock = *clock_host;
    clock.Sleep = [](uint32_t milliseconds) {
        the_host->sleeps.push_back(milliseconds);
        the_host->write_file(PATH, "2\n");
    };
    clock_host = &clock;
    EXPECT_EQ(check(), "2");
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
}

TEST_F(log_follow, opens_only_regular_files) {
    host.files.erase(PATH);
    host.write_file("/var/app.log/", "");
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": not a regular file");
    results(file);
}

TEST_F(log_follow, keeps_its_position_while_the_file_is_away) {
    follow("one\n");
    check();
    std::string kept = content();
    host.files.erase(PATH);
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": system error 2");
    results(file);
    EXPECT_EQ(get(OFFSET), "4");
    write(kept + "two\n");
    EXPECT_EQ(check(), "two");
}

// ---- rotation

TEST_F(log_follow, sees_a_changed_beginning) {
    follow("aaaa\n");
    check();
    write("bbbb\ncccc\n");
    EXPECT_EQ(check(), "bbbb|cccc");
    EXPECT_TRUE(
        host.logged(1, "Rotation of log file '/var/app.log' detected (content changes at beginning)"));
    EXPECT_TRUE(
        host.logged(-1, "Logfile must have been rotated because of changes at the beginning of the file"));
}

TEST_F(log_follow, sees_a_changed_beginning_of_equal_length) {
    follow("aaaa\n");
    check();
    write("aaab\n");
    EXPECT_EQ(check(), "aaab");
}

TEST_F(log_follow, sees_a_smaller_file_and_says_so_rather_than_a_changed_beginning) {
    follow("aaaa\nbbbb\n");
    check();
    write("cccccccc\n");
    EXPECT_EQ(check(), "cccccccc");
    EXPECT_TRUE(host.logged(1, "Rotation of log file '/var/app.log' detected (smaller than before)"));
    EXPECT_TRUE(host.logged(-1, "Logfile is smaller than last time. Must be rotated"));
}

TEST_F(log_follow, looks_at_no_end_behind_a_changed_beginning) {
    std::string head(150, 'h');
    follow(head + "\n");
    check();
    write(std::string(150, 'n') + "\n");
    check();
    EXPECT_TRUE(
        host.logged(1, "Rotation of log file '/var/app.log' detected (content changes at beginning)"));
    EXPECT_FALSE(host.logged(-1, "Logfile have changed in the last read data. Must be rotated"));
}

TEST_F(log_follow, takes_a_short_read_of_the_beginning_for_no_change) {
    follow("aaaa\nbbbb\n");
    check();
    write("cc");
    check();
    EXPECT_FALSE(
        host.logged(-1, "Logfile must have been rotated because of changes at the beginning of the file"));
}

TEST_F(log_follow, sees_a_changed_end_of_a_file_of_equal_length) {
    std::string head(150, 'h');
    follow(head + "\naaaa\n");
    check();
    write(head + "\nbbbb\n");
    EXPECT_EQ(check(), head + "|bbbb");
    EXPECT_TRUE(host.logged(1, "Rotation of log file '/var/app.log' detected (content changes at end)"));
    EXPECT_TRUE(host.logged(-1, "Logfile have changed in the last read data. Must be rotated"));
}

TEST_F(log_follow, sees_no_change_between_the_two_samples) {
    std::string head(150, 'h'), tail(150, 't');
    follow(head + "\n1\n" + tail + "\n");
    check();
    write(head + "\n2\n" + tail + "\nnew\n");
    EXPECT_EQ(check(), "new");
}

TEST_F(log_follow, looks_at_no_end_of_a_file_below_100_bytes) {
    follow(std::string(98, 'a') + "\n");
    check();
    state()->last_data_len = 5; // as if one had been kept
    append("new\n");
    EXPECT_EQ(check(), "new");
}

TEST_F(log_follow, looks_at_the_end_of_a_file_from_100_bytes_on) {
    follow(std::string(99, 'a') + "\n");
    check();
    EXPECT_EQ(state()->last_data_len, 100U);
    state()->last_data[0] = 'b';
    append("new\n");
    EXPECT_EQ(check(), std::string(99, 'a') + "|new");
}

TEST_F(log_follow, compares_the_bytes_that_end_at_the_offset_not_at_the_size) {
    follow(std::string(150, 'a') + "\npartial");
    check();
    EXPECT_EQ(get(OFFSET), "151");
    EXPECT_EQ(get(SIZE), "158");
    EXPECT_EQ(std::string(state()->last_data, 100), std::string(99, 'a') + "\n");
    append(" line\n");
    EXPECT_EQ(check(), "partial line");
}

TEST_F(log_follow, sees_a_rotation_over_a_restart) {
    follow("aaaa\n");
    check();
    write("bbbb\n");
    EXPECT_EQ(check_after_restart(), "bbbb");
}

TEST_F(log_follow, goes_on_at_its_position_after_a_restart) {
    follow("aaaa\n");
    check();
    append("bbbb\n");
    EXPECT_EQ(check_after_restart(), "bbbb");
}

TEST_F(log_follow, after_a_restart_does_not_compare_a_sample_with_a_byte_from_80_to_DF) {
    follow("a\xC3\xA4\n");
    check();
    write("b\xC3\xA4\nnew\n");
    EXPECT_EQ(check_after_restart(), "new"); // the changed beginning is not seen
    EXPECT_TRUE(host.logged(3, "Encountered wrong character in hex string '6'") ||
                host.logged(3, "Encountered wrong character in hex string 'c'"));
}

TEST_F(log_follow, in_one_process_compares_every_byte) {
    follow("a\xC3\xA4\n");
    check();
    write("b\xC3\xA4\nnew\n");
    EXPECT_EQ(check(), "b\xC3\xA4|new");
}

TEST_F(log_follow, after_a_restart_compares_what_stands_ahead_of_a_byte_from_E0_up) {
    follow("a\xE4z\n");
    check();
    write("a\xE4y\nnew\n");
    EXPECT_EQ(check_after_restart(), "new");
    EXPECT_EQ(check(), "");
    write("b\xE4y\nnew\n");
    EXPECT_EQ(check_after_restart(), "b\xE4y|new");
}

// ---- records

TEST_F(log_follow, holds_back_what_no_separator_ends_while_the_file_grows) {
    follow("one\ntw");
    EXPECT_EQ(check(), "one");
    EXPECT_EQ(get(OFFSET), "4");
    EXPECT_EQ(get(SIZE), "6");
    append("o\n");
    EXPECT_EQ(check(), "two");
}

TEST_F(log_follow, hands_on_the_rest_of_a_file_that_stands_still) {
    follow("one\ntwo");
    EXPECT_EQ(check(), "one");
    EXPECT_EQ(check(), "two");
    EXPECT_TRUE(host.logged(-1, "End of file: two"));
    EXPECT_TRUE(host.logged(-1, "Got entry: two"));
    EXPECT_EQ(get(OFFSET), "7");
    append(" more\n");
    EXPECT_EQ(check(), " more"); // a record of its own
}

TEST_F(log_follow, says_that_nothing_is_left_of_a_file_that_stands_still) {
    follow("one\n");
    check();
    host.log.clear();
    EXPECT_EQ(check(), "");
    EXPECT_TRUE(host.logged(-1, "End of file: "));
    EXPECT_EQ(host.count_logged("Got entry"), 0);
}

TEST_F(log_follow, keeps_a_separator_at_the_end_of_its_record) {
    separate(file, "\n", 0);
    follow("A\nB\nC");
    EXPECT_EQ(check(), "A\n|B\n");
    EXPECT_EQ(get(OFFSET), "4");
    EXPECT_EQ(check(), "C");
}

TEST_F(log_follow, keeps_a_separator_at_the_start_of_the_next_record) {
    separate(file, "\n", 1);
    follow("A\nB\nC");
    EXPECT_EQ(check(), "A|\nB");
    EXPECT_EQ(get(OFFSET), "3");
    EXPECT_EQ(check(), "\nC");
}

TEST_F(log_follow, drops_a_separator_for_any_other_inclusion) {
    separate(file, "\n", 7);
    follow("A\nB\nC");
    EXPECT_EQ(check(), "A|B");
    EXPECT_EQ(get(OFFSET), "4");
}

TEST_F(log_follow, makes_no_empty_records) {
    follow("\n\nA\n\n\nB\n");
    EXPECT_EQ(check(), "A|B");
    separate(file, "\n", 0);
    append("\n\nC\n\n");
    EXPECT_EQ(check(), "C\n");
    separate(file, "\n", 1);
    append("\n\nD\n\nE\n");
    EXPECT_EQ(check(), "\nD|\nE"); // of two separators in a row the first goes
}

TEST_F(log_follow, cuts_at_separators_of_any_length) {
    separate(file, "-+\n", 2);
    follow("A-\nB---\nC--");
    EXPECT_EQ(check(), "A|B");
    separate(file, "\n[0-9]{2} ", 1);
    append("\n");
    check();
    append("17 one\nmore\n18 two\n");
    EXPECT_EQ(check(), "C--|\n17 one\nmore");
}

TEST_F(log_follow, ends_the_text_at_a_zero_byte) {
    follow(std::string("one\ntw\0o\nthree\n", 15));
    EXPECT_EQ(check(), "one");
    EXPECT_EQ(check(), "tw"); // what stands behind it goes with the file's end
    EXPECT_EQ(get(OFFSET), "15");
}

TEST_F(log_follow, loses_what_stands_behind_a_zero_byte_in_a_full_buffer) {
    follow(std::string("tw\0o\n", 5) + std::string(LOG_BUFFER_SIZE - 5, 'x') + "y\nnext\n");
    EXPECT_EQ(check(), "tw|y|next");
}

TEST_F(log_follow, splits_a_record_that_is_longer_than_its_buffer) {
    follow(std::string(LOG_BUFFER_SIZE, 'a') + "b\nc\n");
    EXPECT_EQ(check(), std::string(LOG_BUFFER_SIZE, 'a') + "|b|c");
    EXPECT_TRUE(host.logged(-1, "Buffer overflow: " + std::string(LOG_BUFFER_SIZE, 'a')));
}

TEST_F(log_follow, keeps_a_record_whole_that_just_fits) {
    follow(std::string(LOG_BUFFER_SIZE - 1, 'a') + "\nb\n");
    EXPECT_EQ(check(), std::string(LOG_BUFFER_SIZE - 1, 'a') + "|b");
    EXPECT_EQ(host.count_logged("Buffer overflow"), 0);
}

TEST_F(log_follow, counts_the_last_separator_into_the_buffer) {
    // Its place is the buffer's start, so that one byte less of the record fits.
    follow("a\n" + std::string(LOG_BUFFER_SIZE - 1, 'b') + "c\n");
    EXPECT_EQ(check(), "a|" + std::string(LOG_BUFFER_SIZE - 1, 'b') + "|c");
}

TEST_F(log_follow, moves_a_record_with_the_separator_that_opens_it) {
    separate(file, "\n", 1);
    follow("a\nb\n" + std::string(LOG_BUFFER_SIZE - 6, 'c') + "d\ne");
    EXPECT_EQ(check(), "a|\nb|\n" + std::string(LOG_BUFFER_SIZE - 6, 'c') + "d");
}

TEST_F(log_follow, holds_back_what_is_left_in_a_buffer_that_the_file_fills) {
    follow("aa\n" + std::string(LOG_BUFFER_SIZE - 3, 'b'));
    EXPECT_EQ(check(), "aa");
    EXPECT_EQ(get(OFFSET), "3");
    EXPECT_EQ(check(), std::string(LOG_BUFFER_SIZE - 3, 'b'));
}

TEST_F(log_follow, cuts_many_buffers) {
    std::string text, expected;
    for (int i = 0; i < 20'000; i++) {
        std::string line = "line " + std::to_string(i) + std::string(static_cast<size_t>(i % 97), '.');
        text += line + "\n";
        expected += (i > 0 ? "|" : "") + line;
    }
    follow(text);
    EXPECT_EQ(check(), expected);
}

TEST_F(log_follow, without_a_separator_goes_by_buffers) {
    separate(file, "", 2);
    follow(std::string(2 * LOG_BUFFER_SIZE, 'a') + "b\n");
    EXPECT_EQ(check(), std::string(LOG_BUFFER_SIZE, 'a') + "|" + std::string(LOG_BUFFER_SIZE, 'a'));
    EXPECT_EQ(host.count_logged("Error finding log separator: "), 3);
    EXPECT_TRUE(host.logged(2, "Error finding log separator: Invalid regular expression"));
    EXPECT_EQ(check(), "b\n");
}

TEST_F(log_follow, cuts_the_words_of_a_failed_search_at_80_bytes) {
    static regex_ops engine;
    engine = regex_ops_host;
    engine.regerror = [](int, const tn_regex *, char *buffer, size_t size) {
        copy_bounded(buffer, std::string(100, 'w').c_str(), size);
        return size_t{101};
    };
    regex_host = &engine;
    separate(file, "", 2);
    follow("a\n");
    check();
    EXPECT_TRUE(host.logged(2, "Error finding log separator: " + std::string(79, 'w')));
}

TEST_F(log_follow, takes_an_empty_match_for_no_separator) {
    separate(file, "x*", 2);
    follow("xabx");
    EXPECT_EQ(check(), ""); // the first separator goes, and nothing separates the rest
    EXPECT_EQ(host.count_logged("The log separator matches the empty string, which separates nothing"), 1);
    EXPECT_TRUE(host.logged(3, "The log separator matches the empty string, which separates nothing"));
    EXPECT_EQ(get(OFFSET), "1");
    EXPECT_EQ(check(), "abx");
}

TEST_F(log_follow, takes_an_empty_match_behind_text_for_a_separator) {
    separate(file, "$", 2);
    follow("abc");
    EXPECT_EQ(check(), "abc");
}

// ---- the check-in

TEST_F(log_follow, stops_behind_a_chunk_when_a_checkin_is_due) {
    std::string line(99, 'a');
    std::string text;
    for (int i = 0; i < 400; i++)
        text += line + "\n";
    follow(text);
    overdue_questions = 0;
    overdue_answer = true;
    check();
    EXPECT_EQ(overdue_questions, 1);
    EXPECT_EQ(get(OFFSET), "16300"); // whole lines only
    EXPECT_EQ(get(SIZE), "16384");
    overdue_answer = false;
    check();
    EXPECT_EQ(get(OFFSET), "40000");
}

TEST_F(log_follow, keeps_a_separator_that_opens_a_record_over_a_checkin) {
    separate(file, "\n", 1);
    follow("A\nB\nC");
    overdue_answer = true;
    EXPECT_EQ(check(), "A|\nB");
    EXPECT_EQ(get(OFFSET), "3");
}

TEST_F(log_follow, does_not_hand_on_the_rest_when_a_checkin_is_due) {
    follow("one");
    check();
    overdue_answer = true;
    EXPECT_EQ(check(), ""); // the file stands still, but its end was not looked for
    overdue_answer = false;
    EXPECT_EQ(check(), "one");
}

// ---- failing reads

TEST_F(log_follow, tells_a_failed_read_of_a_file_that_stands_still) {
    follow("one\n");
    check();
    host.broken["read"]["/"] = 5;
    EXPECT_FAILURE(check_log(file, nullptr), "Error during read of log file: system error 5");
    EXPECT_EQ(results(file), "0");
    EXPECT_EQ(get(OFFSET), "4");
}

TEST_F(log_follow, does_not_tell_a_failed_read_of_a_sample) {
    follow("one\n");
    check();
    static const auto *whole = files_host;
    whole = files_host;
    auto failing = *files_host;
    failing.read = [](host_file, void *, size_t) -> int64_t {
        files_host = whole;
        the_host->last_error = 5;
        return -1;
    };
    files_host = &failing;
    EXPECT_EQ(check(), "");
    EXPECT_EQ(files_host, whole); // the failure has come
}

TEST_F(log_follow, comes_back_to_a_growing_file_that_it_could_not_read) {
    follow("one\n");
    host.broken["read"]["/"] = 5;
    EXPECT_EQ(check(), "");
    host.broken.clear();
    EXPECT_EQ(check(), "one");
}

// ---- a file that is too large

TEST_F(log_follow, parks_a_file_whose_position_cannot_be_told) {
    follow("one\n");
    host.broken["tell"]["/"] = 75;
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_EQ(results(file), "0 one|2 Log file is too large, not checking further entries.");
    EXPECT_TRUE(host.logged(3, "File '/var/app.log' too large, not checking further entries."));
    EXPECT_EQ(get(OFFSET), "-1");
    EXPECT_EQ(get(SIZE), "(absent)");
}

TEST_F(log_follow, leaves_a_parked_file_alone) {
    follow("one\n");
    check();
    state()->offset = state()->size = -1;
    write("");
    EXPECT_EQ(check(), "");
    EXPECT_EQ(get(OFFSET), "-1");
    content().resize(LARGEST_TAKEN_BACK + 1);
    EXPECT_EQ(check(), "");
    EXPECT_EQ(get(OFFSET), "-1");
    EXPECT_EQ(check_after_restart(), ""); // parked for the next process, too
}

TEST_F(log_follow, takes_a_parked_file_back_when_it_has_become_small) {
    follow("one\n");
    check();
    state()->offset = state()->size = -1;
    content().assign("two\n" + std::string(LARGEST_TAKEN_BACK - 4, 'x'));
    overdue_answer = true;
    EXPECT_SUCCESS(check_log(file, nullptr));
    std::string all = results(file);
    EXPECT_EQ(all, "0 Log file truncated, once again checking entries.|0 two");
    EXPECT_TRUE(host.logged(3, "File '/var/app.log' truncated, once again checking entries."));
    EXPECT_EQ(get(OFFSET), "4");
}
