#include "platform/agent_log.h"

#include "fakes/test_host.h"
#include "platform/clock.h"

#include <gtest/gtest.h>
#include <thread>

static constexpr const char *PATH = "/var/log/agent.log";
static constexpr const char *TIME = "Sun Sep  9 01:46:40 2001: "; // of 1,000,000,000

class agent_logs : public testing::Test {
protected:
    test_host host;

    void SetUp() override {
        host.write_file("/var/log/other", "");
        ASSERT_NE(log_open(PATH), NO_FILE);
    }
    std::string written() const { return host.read_file(PATH); }
};

static int times_read;
static int64_t counted_time() {
    times_read++;
    return 1'000'000'000;
}

static clock_ops counting_clock() {
    times_read = 0;
    clock_ops counting = *clock_host;
    counting.time = counted_time;
    return counting;
}

static int writes;
static const files_ops *files_below;
static int64_t counted_write(host_file file, const void *buffer, size_t size) {
    writes++;
    return files_below->write(file, buffer, size);
}

static files_ops counting_files() {
    writes = 0;
    files_below = files_host;
    files_ops counting = *files_host;
    counting.write = counted_write;
    return counting;
}

TEST_F(agent_logs, write_time_message_and_line_end) {
    agent_log(LOG_NORMAL, "%s is %d", "answer", 42);
    EXPECT_EQ(written(), std::string(TIME) + "answer is 42\n");
}

TEST_F(agent_logs, tell_local_time) {
    host.zone = 7200;
    agent_log(LOG_NORMAL, "hello");
    EXPECT_EQ(written(), "Sun Sep  9 03:46:40 2001: hello\n");
}

TEST_F(agent_logs, hand_each_line_to_the_host_in_one_piece) {
    files_ops counting = counting_files();
    files_host = &counting;
    agent_log(LOG_NORMAL, "short");
    agent_log(LOG_NORMAL, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(writes, 2);
}

TEST_F(agent_logs, write_levels_from_the_threshold_up) {
    log_set_level(LOG_WARNING);
    agent_log(LOG_TRACE, "trace");
    agent_log(LOG_NORMAL, "normal");
    agent_log(LOG_WARNING, "warning");
    agent_log(LOG_ERROR, "error");
    EXPECT_EQ(written(), std::string(TIME) + "warning\n" + TIME + "error\n");
}

TEST_F(agent_logs, read_no_time_and_format_nothing_below_the_threshold) {
    clock_ops counting = counting_clock();
    clock_host = &counting;
    log_set_level(LOG_WARNING);
    host.fail_allocation = 1; // a line of this length takes memory to format
    std::string longer(5000, 'x');
    agent_log(LOG_NORMAL, "%s", longer.c_str());
    EXPECT_EQ(times_read, 0);
    EXPECT_EQ(host.fail_allocation, 1U);
    agent_log(LOG_WARNING, "%s", longer.c_str());
    EXPECT_EQ(times_read, 1);
    EXPECT_EQ(host.fail_allocation, 0U);
}

TEST_F(agent_logs, keep_long_lines_whole) {
    for (size_t length : {995U, 996U, 997U, 998U, 999U, 1000U, 20000U}) {
        host.files[PATH].content.clear();
        log_open(PATH);
        std::string message(length, 'x');
        agent_log(LOG_NORMAL, "%s", message.c_str());
        EXPECT_EQ(written(), TIME + message + "\n") << length;
    }
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(agent_logs, cut_a_long_line_when_memory_is_out) {
    host.fail_allocation = 1;
    agent_log(LOG_NORMAL, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(written(), TIME + std::string(997, 'x') + "\n");
}

TEST_F(agent_logs, leave_a_line_end_within_a_message) {
    agent_log(LOG_NORMAL, "two\nlines\n");
    EXPECT_EQ(written(), std::string(TIME) + "two\nlines\n\n");
}

TEST_F(agent_logs, do_not_report_their_own_failures) {
    host.broken["write"][PATH] = 28;
    agent_log(LOG_NORMAL, "lost");
    host.broken.clear();
    agent_log(LOG_NORMAL, "kept");
    EXPECT_EQ(written(), std::string(TIME) + "kept\n");
    EXPECT_EQ(host.log.size(), 2U);
}

static int64_t write_and_fault(host_file file, const void *buffer, size_t size) {
    files_host = files_below;
    int64_t written = files_host->write(file, buffer, size);
    agent_log(LOG_NORMAL, "fault");
    return written;
}

TEST_F(agent_logs, take_the_line_of_a_fault_in_the_middle_of_another) {
    files_ops counting = counting_files();
    counting.write = write_and_fault;
    files_host = &counting;
    agent_log(LOG_NORMAL, "work");
    EXPECT_EQ(written(), std::string(TIME) + "work\n" + TIME + "fault\n");
}

TEST_F(agent_logs, keep_lines_of_several_threads_whole) {
    agent_log_observer = nullptr; // it belongs to one thread, as does the calendar of the test host
    clock_ops clock = *clock_host;
    clock.localtime = [](int64_t, tm *out) {
        *out = tm{.tm_sec = 40, .tm_min = 46, .tm_hour = 1, .tm_mday = 9, .tm_mon = 8, .tm_year = 101};
        return true;
    };
    clock_host = &clock;
    auto write_lines = [](const char *word) {
        for (int i = 0; i < 200; i++)
            agent_log(LOG_NORMAL, "%s", word);
    };
    std::thread other(write_lines, "of the other thread");
    write_lines("of the main thread");
    other.join();
    std::string rest = written();
    int main_lines = 0, other_lines = 0;
    for (size_t end; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1)) {
        main_lines += rest.substr(0, end) == std::string(TIME) + "of the main thread";
        other_lines += rest.substr(0, end) == std::string(TIME) + "of the other thread";
    }
    EXPECT_EQ(main_lines, 200);
    EXPECT_EQ(other_lines, 200);
    EXPECT_EQ(rest, "");
}

TEST(log_stream, starts_absent_and_then_nothing_is_written) {
    test_host host;
    log_reset();
    EXPECT_EQ(log_stream(), NO_FILE);
    EXPECT_FALSE(log_is_console());
    agent_log(LOG_ERROR, "unheard");
    EXPECT_TRUE(host.log.empty());
}

TEST(log_reset, starts_with_detail) {
    test_host host;
    log_reset();
    log_to_stderr();
    agent_log(LOG_TRACE, "below");
    agent_log(LOG_DETAIL, "at the threshold");
    EXPECT_EQ(host.log.size(), 1U);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "at the threshold"));
}

TEST(log_to_stderr, returns_the_stream_before) {
    test_host host;
    log_reset();
    EXPECT_EQ(log_to_stderr(), NO_FILE);
    EXPECT_TRUE(log_is_console());
    EXPECT_EQ(log_to_stderr(), files_host->stderr_handle);
    host_file file = log_open("/x.log");
    EXPECT_FALSE(log_is_console());
    EXPECT_EQ(log_to_stderr(), file);
}

TEST(log_open, goes_on_behind_what_the_file_holds) {
    test_host host;
    host.write_file("/x.log", "earlier\n");
    host_file opened = log_open("/x.log");
    EXPECT_EQ(log_stream(), opened);
    agent_log(LOG_NORMAL, "later");
    EXPECT_EQ(host.read_file("/x.log"), "earlier\n" + std::string(TIME) + "later\n");
}

TEST(log_open, makes_the_folders_that_are_missing) {
    test_host host;
    EXPECT_NE(log_open("/home/u/.local/state/tarnix/agent.log"), NO_FILE);
    agent_log(LOG_NORMAL, "hello");
    EXPECT_NE(host.read_file("/home/u/.local/state/tarnix/agent.log"), "");
}

TEST(log_open, leaves_the_log_silent_when_it_fails) {
    test_host host;
    host.broken["open"]["/x.log"] = 13;
    EXPECT_EQ(log_open("/x.log"), NO_FILE);
    agent_log(LOG_ERROR, "unheard");
    EXPECT_TRUE(host.log.empty());
    host.broken.clear();
    EXPECT_NE(log_open("/x.log"), NO_FILE);
    agent_log(LOG_ERROR, "heard");
    EXPECT_EQ(host.read_file("/x.log"), std::string(TIME) + "heard\n");
}

TEST(log_close, does_nothing_on_the_console) {
    test_host host;
    log_close();
    EXPECT_TRUE(log_is_console());
    EXPECT_TRUE(host.log.empty());
}

TEST(log_close, does_nothing_without_a_stream) {
    test_host host;
    log_reset();
    log_close();
    EXPECT_EQ(log_stream(), NO_FILE);
}

TEST(log_close, says_so_and_closes_the_file) {
    test_host host;
    log_open("/x.log");
    log_close();
    EXPECT_TRUE(host.logged(LOG_WARNING, "Closing logfile"));
    EXPECT_EQ(host.read_file("/x.log"), std::string(TIME) + "Closing logfile\n");
    EXPECT_EQ(log_stream(), NO_FILE);
    EXPECT_TRUE(host.open_files.empty());
}
