#include "logcheck/log_check.h"

#include "logcheck/log_fixture.h"

class log_checks : public log_fixture {
protected:
    static constexpr const char *OFFSET = "log./.var.app\\.log";
};

TEST_F(log_checks, report_at_least_that_they_ran) {
    host.write_file(PATH, "history\n");
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_EQ(results(file), "0");
}

TEST_F(log_checks, add_nothing_to_results_that_wait) {
    host.write_file(PATH, "");
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_EQ(results(file), "0");
}

TEST_F(log_checks, that_fail_report_that_they_ran_too) {
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": system error 2");
    EXPECT_EQ(results(file), "0");
}

TEST_F(log_checks, store_their_position_whatever_came_of_them) {
    EXPECT_FAILURE(check_log(file, nullptr), "Could not open log file \"/var/app.log\": system error 2");
    EXPECT_EQ(get(OFFSET), "0");
    host.write_file(PATH, "line\n");
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_EQ(get(OFFSET), "5");
    results(file);
}

TEST_F(log_checks, that_the_server_configured_as_another_kind_follow_their_file) {
    free_lognode(file->lognode);
    file->lognode = nullptr;
    host.write_file(PATH, "");
    EXPECT_SUCCESS(check_log(file, nullptr));
    host.write_file(PATH, "line\n");
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_SUCCESS(check_log(file, nullptr));
    EXPECT_EQ(get(OFFSET), "5");
    EXPECT_EQ(results(file), "0");
}

TEST_F(log_checks, below_forward_read_nothing) {
    devnode *shared = add_check(forward, "B", "B");
    EXPECT_SUCCESS(check_log(shared, nullptr));
    EXPECT_EQ(results(shared), "0");
    EXPECT_EQ(get("log./forward.B"), "0");
    EXPECT_TRUE(host.sleeps.empty()); // no file was looked for
}

TEST_F(log_checks, find_the_forward_group_in_any_case) {
    devnode *shared = add_check(devtree_child(top.get(), "/FORWARD", ""), "B", "B");
    EXPECT_SUCCESS(check_log(shared, nullptr));
    results(shared);
}

TEST_F(log_checks, below_eventlog_read_an_event_log) {
    devnode *log = add_check(devtree_child(top.get(), "EventLog", ""), "System");
    const char *failure = check_log(log, nullptr);
    ASSERT_NE(failure, nullptr);
    EXPECT_EQ(std::string(failure).rfind("Could not open event log: ", 0), 0U);
    EXPECT_EQ(results(log), "0");
}

TEST_F(log_checks, right_below_the_top_read_a_file_of_that_name) {
    devnode *log = add_check(top.get(), "System");
    EXPECT_FAILURE(check_log(log, nullptr), "Could not open log file \"System\": system error 2");
    results(log);
}

TEST_F(log_checks, with_the_state_of_another_check_are_fatal) {
    file->state = heap_alloc(1);
    expect_fatal([this] { static_cast<void>(check_log(file, nullptr)); }, "Check state corrupt");
    heap_free(file->state);
    clear_state(file);
}
