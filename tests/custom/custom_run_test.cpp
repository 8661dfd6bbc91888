#include "custom/custom_run.h"

#include "custom/custom_output.h"
#include "custom/scripted_programs.h"
#include "devtree/check_table.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

struct run : testing::Test {
    test_host host;
    scripted_programs programs;
    custom_check check = {};
    resnode result = {};

    run() {
        regex_host = &regex_ops_host;
        host.last_error = 5;
        check.name = text_copy("c");
        check.command = text_copy("/bin/c 'x y'");
        check.timeout = 10;
        check.type = CUSTOM_Integer;
        EXPECT_EQ(tn_regcomp(&check.result_regex, "^Result:[[:space:]]*(-?[[:digit:]]+)[[:space:]]*$"), 0);
    }
    ~run() override {
        programs.join();
        custom_run_reset();
        heap_free(check.name);
        heap_free(check.command);
        heap_free(result.comment);
        tn_regfree(&check.result_regex);
        EXPECT_EQ(host.blocks, 0);
    }
    const char *start() { return run_custom_check(&check, &result); }
    void expect_killed() {
        EXPECT_EQ(programs.called("TerminateProcess"), 1);
        EXPECT_EQ(programs.called("CloseProcess"), 1);
        auto at = std::find(programs.calls.begin(), programs.calls.end(), "TerminateProcess");
        EXPECT_EQ(at[1], "CloseProcess");
    }
    bool starts_again() {
        programs.reads.clear();
        programs.fails.clear();
        programs.answers.clear();
        check.type = CUSTOM_Boolean;
        return start() == nullptr;
    }
};

} // namespace

TEST_F(run, does_one_thing_behind_the_other) {
    programs.reads = {{"Result: 42\n"}};
    EXPECT_SUCCESS(start());
    EXPECT_EQ(result.value, 42);
    EXPECT_EQ(programs.started, "/bin/c 'x y'");
    EXPECT_TRUE(programs.with_output);
    EXPECT_EQ(programs.calls, (std::vector<std::string>{"SetErrorMode",
                                                        "CreateEventA",
                                                        "CreateEventA",
                                                        "CreatePipe",
                                                        "DuplicateHandle",
                                                        "CreateProcessA",
                                                        "ClosePipe write",
                                                        "ResetEvent read_complete",
                                                        "ResetEvent data_processed",
                                                        "CreateThread",
                                                        "wait read_complete",
                                                        "SetEvent data_processed",
                                                        "wait read_complete",
                                                        "wait process",
                                                        "GetExitCodeProcess",
                                                        "CloseProcess",
                                                        "CancelIoEx",
                                                        "SetEvent data_processed",
                                                        "wait thread",
                                                        "CloseHandle thread",
                                                        "ClosePipe read"}));
    EXPECT_EQ(host.told(),
              (std::vector<std::string>{"Sleeping for 10000 milliseconds", "Finished sleeping: 0",
                                        "Data on pipe: status=1, 11 bytes, err=0", "c*: Result: 42",
                                        "Sleeping for 10000 milliseconds", "Finished sleeping: 0",
                                        "Data on pipe: status=0, 0 bytes, err=109", "Exit code: 0",
                                        "close_thread() invoked", "Closed pipe, now setting event",
                                        "Waiting for thread to terminate", "Thread terminated"}));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Exit code: 0"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Data on pipe: status=1, 11 bytes, err=0"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "close_thread() invoked"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Closed pipe, now setting event"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Waiting for thread to terminate"));
}

TEST_F(run, keeps_its_events_for_the_next_one) {
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_EQ(programs.called("CreateEventA"), 2);
    EXPECT_EQ(programs.open, 2);
}

TEST_F(run, hands_words_to_a_host_that_takes_them) {
    programs.takes_words = true;
    programs.use();
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_EQ(programs.started, "[/bin/c][x y]");
}

TEST_F(run, does_without_what_a_host_does_not_need) {
    programs.inherits = false;
    programs.use();
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_EQ(programs.called("DuplicateHandle"), 0);
}

TEST_F(run, asks_for_what_the_buffer_has_room_for) {
    programs.reads = {{std::string(200, 'x')}, {std::string(50, 'x') + "\nab"}, {"cd"}};
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_EQ(programs.sizes, (std::vector<uint32_t>{256, 56, 254, 252}));
}

TEST_F(run, takes_a_last_line_without_a_line_feed) {
    programs.reads = {{"Result: 42"}};
    EXPECT_SUCCESS(start());
    EXPECT_EQ(result.value, 42);
}

TEST_F(run, takes_a_last_line_as_long_as_it_can_be) {
    programs.reads = {{std::string(247, ' ')}, {"Result:9"}};
    tn_regfree(&check.result_regex);
    ASSERT_EQ(tn_regcomp(&check.result_regex, "Result:([0-9])$"), 0);
    EXPECT_SUCCESS(start());
    EXPECT_EQ(result.value, 9);
}

TEST_F(run, tells_a_failure_of_the_last_line_behind_the_end) {
    programs.reads = {{"Result: -5"}};
    EXPECT_FAILURE(start(), "c: Error parsing result \"-5\": Negative numbers are not supported");
    EXPECT_EQ(programs.called("TerminateProcess"), 0);
    EXPECT_EQ(programs.called("GetExitCodeProcess"), 1);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Exit code: 0"));
}

TEST_F(run, is_killed_by_a_failure_of_its_output) {
    programs.reads = {{"Result: -5\n"}, {}};
    EXPECT_FAILURE(start(), "c: Error parsing result \"-5\": Negative numbers are not supported");
    expect_killed();
    auto at = std::find(programs.calls.begin(), programs.calls.end(), "wait read_complete");
    EXPECT_EQ(std::vector<std::string>(at, programs.calls.end()),
              (std::vector<std::string>{"wait read_complete", "SetEvent data_processed", "TerminateProcess",
                                        "CloseProcess", "CancelIoEx", "SetEvent data_processed",
                                        "wait thread", "CloseHandle thread", "ClosePipe read"}));
    EXPECT_TRUE(starts_again());
}

TEST_F(run, gives_its_exit_code) {
    programs.reads = {{"Result: 7\n"}};
    programs.exit_code = 2;
    EXPECT_FAILURE(start(), "Failed with exit code 2");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Exit code: 2"));
    check.no_value_exitcode = 2;
    programs.reads = {{"Result: 7\n"}};
    EXPECT_EQ(start(), CHECK_NO_RESULT);
}

// ---- the time-out

TEST_F(run, that_stays_silent_is_killed) {
    programs.reads = {{}};
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    expect_killed();
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleeping for 10000 milliseconds"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Finished sleeping: 258"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleep timed out"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Thread terminated"));
    EXPECT_TRUE(starts_again());
}

TEST_F(run, that_never_falls_silent_is_killed_at_the_same_time) {
    for (int i = 0; i < 30; i++)
        programs.reads.push_back({"x\n", 0, 999});
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleeping for 9001 milliseconds"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleeping for 10 milliseconds"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Timeout without sleep"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleep timed out"));
    EXPECT_EQ(host.count_logged("Data on pipe"), 11);
}

TEST_F(run, has_until_the_last_millisecond) {
    programs.reads = {{"x\n", 0, 10'000}, {}};
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleeping for 0 milliseconds"));
    EXPECT_FALSE(host.logged(LOG_TRACE, "Timeout without sleep"));
}

TEST_F(run, with_a_negative_timeout_has_no_time) {
    check.timeout = -5;
    programs.reads = {{}};
    EXPECT_FAILURE(start(), "Timeout (-5 s)");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Timeout without sleep"));
    EXPECT_EQ(host.count_logged("Sleeping"), 0);
}

TEST_F(run, with_a_timeout_of_more_milliseconds_than_31_bits_say_has_no_time) {
    check.timeout = 2'147'484;
    programs.reads = {{}};
    EXPECT_FAILURE(start(), "Timeout (2147484 s)");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Timeout without sleep"));
}

TEST_F(run, with_a_timeout_that_wraps_has_what_is_left_of_it) {
    check.timeout = 4'294'968;
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Sleeping for 704 milliseconds"));
    EXPECT_EQ(programs.limits, (std::vector<uint32_t>{704}));
}

TEST_F(run, has_the_time_out_once_more_for_its_end) {
    programs.reads = {{"Result: 1\n", 0, 9'000}};
    EXPECT_SUCCESS(start());
    EXPECT_EQ(programs.limits, (std::vector<uint32_t>{10'000}));
}

TEST_F(run, that_goes_on_behind_its_output_is_killed) {
    programs.reads = {{"Result: 1\n"}};
    programs.answers["process"][1] = OBJECT_TIMEOUT;
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    expect_killed();
    EXPECT_EQ(host.count_logged("Sleep timed out"), 0);
    EXPECT_TRUE(starts_again());
}

// ---- failures

TEST_F(run, without_its_events_does_not_begin) {
    programs.fails["CreateEventA"] = 1;
    EXPECT_FAILURE(start(), "Could not create read_complete_evt: system error 5");
    programs.fails["CreateEventA"] = 3;
    EXPECT_FAILURE(start(), "Could not create data_processed_evt: system error 5");
    EXPECT_EQ(programs.called("CreatePipe"), 0);
    EXPECT_EQ(programs.open, 0);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, without_memory_does_not_begin) {
    host.fail_allocation = 1;
    EXPECT_FAILURE(start(), "Could not create read_complete_evt: Out of memory");
}

TEST_F(run, without_a_pipe_does_not_begin) {
    programs.fails["CreatePipe"] = 1;
    EXPECT_FAILURE(start(), "Error creating pipes");
    EXPECT_EQ(programs.called("CreateProcessA"), 0);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, without_a_copy_of_the_read_end_does_not_begin) {
    programs.fails["DuplicateHandle"] = 1;
    EXPECT_FAILURE(start(), "Error duplicating handle");
    EXPECT_EQ(programs.called("CreateProcessA"), 0);
    EXPECT_EQ(programs.open, 2);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, of_what_cannot_be_started_fails_in_the_words_of_the_system) {
    check.type = CUSTOM_Boolean;
    programs.fails["CreateProcessA"] = 1;
    EXPECT_FAILURE(start(), "Failed executing '/bin/c 'x y'': system error 5");
    EXPECT_EQ(programs.called("CreateThread"), 0);
    EXPECT_EQ(programs.open, 2);
    EXPECT_EQ(result.comment, nullptr);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, of_what_cannot_be_split_fails_in_words_of_its_own) {
    programs.takes_words = true;
    programs.use();
    text_replace(&check.command, text_copy("/bin/c 'x"));
    EXPECT_FAILURE(start(), "Failed executing '/bin/c 'x': A single quote in the command line has no end");
    EXPECT_EQ(programs.called("CreateProcessA"), 0);
    EXPECT_EQ(programs.open, 2);
}

TEST_F(run, goes_on_where_an_event_cannot_be_reset) {
    programs.fails["ResetEvent read_complete"] = 1;
    programs.fails["ResetEvent data_processed"] = 1;
    programs.reads = {{"Result: 1\n"}};
    EXPECT_SUCCESS(start());
    EXPECT_TRUE(host.logged(LOG_ERROR, "Could not reset read_complete_evt: system error 5"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Could not reset data_processed_evt: system error 5"));
}

TEST_F(run, without_a_reader_is_killed) {
    programs.fails["CreateThread"] = 1;
    EXPECT_FAILURE(start(), "Could not create read_thread when executing custom check c: system error 5");
    expect_killed();
    EXPECT_EQ(programs.called("CancelIoEx"), 0);
    EXPECT_EQ(programs.open, 2);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, is_killed_where_its_output_cannot_be_waited_for) {
    programs.reads = {{}};
    programs.answers["read_complete"][1] = OBJECT_FAILED;
    EXPECT_FAILURE(start(), "Waiting for output failed: system error 5");
    expect_killed();
    EXPECT_TRUE(host.logged(LOG_TRACE, "Finished sleeping: -1"));
    EXPECT_TRUE(starts_again());
}

TEST_F(run, is_killed_where_its_end_cannot_be_waited_for) {
    programs.answers["process"][1] = OBJECT_FAILED;
    EXPECT_FAILURE(start(), "Waiting for termination failed: system error 5");
    expect_killed();
    EXPECT_TRUE(starts_again());
}

TEST_F(run, is_killed_where_its_exit_code_cannot_be_had) {
    programs.fails["GetExitCodeProcess"] = 1;
    EXPECT_FAILURE(start(), "Custom check c: Abnormal termination");
    expect_killed();
    EXPECT_EQ(host.count_logged("Exit code"), 0);
    EXPECT_TRUE(starts_again());
}

TEST_F(run, takes_a_read_that_fails_for_the_end_of_the_output) {
    programs.reads = {{"Result: 1\n"}, {"", 6}};
    EXPECT_SUCCESS(start());
    EXPECT_EQ(result.value, 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "ReadFile[1] returned error 6"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Data on pipe: status=0, 0 bytes, err=6"));
}

TEST_F(run, says_nothing_of_a_pipe_that_has_ended) {
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_EQ(host.count_logged("ReadFile"), 0);
}

TEST_F(run, times_out_where_its_reader_cannot_tell_of_a_read) {
    programs.reads = {{"Result: 1\n"}};
    programs.fails["SetEvent read_complete"] = 1;
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    expect_killed();
    EXPECT_TRUE(starts_again());
}

TEST_F(run, times_out_where_its_reader_cannot_wait) {
    programs.reads = {{"Result: 1\n"}, {"x"}};
    programs.answers["data_processed"][1] = OBJECT_FAILED;
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    expect_killed();
    EXPECT_TRUE(starts_again());
}

TEST_F(run, that_cannot_give_the_buffer_back_is_fatal) {
    programs.reads = {{"Result: 1\n"}};
    programs.fails["SetEvent data_processed"] = 1;
    expect_fatal([this] { start(); }, "Could not signal data_processed_event for custom_check");
    programs.end_process();
}

// ---- the end of the reader

TEST_F(run, leaves_a_reader_that_does_not_end_to_itself) {
    programs.reads = {{}};
    programs.deaf = true;
    EXPECT_FAILURE(start(), "Timeout (10 s)");
    EXPECT_TRUE(host.logged(LOG_ERROR, "Reader thread did not terminate in 10 seconds"));
    EXPECT_EQ(programs.called("CloseHandle thread"), 1);
    EXPECT_EQ(programs.called("ClosePipe read"), 0) << "it may still be read from";
    EXPECT_EQ(programs.now_ms, 1'020'000);
    programs.join();
    EXPECT_TRUE(starts_again()) << "with events of its own";
    EXPECT_EQ(programs.called("CreateEventA"), 4);
}

TEST_F(run, tells_a_wait_for_the_reader_that_fails) {
    programs.answers["thread"][1] = OBJECT_FAILED;
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_TRUE(host.logged(LOG_ERROR, "Waiting for the thread failed: system error 5"));
    programs.join();
    EXPECT_TRUE(starts_again());
}

TEST_F(run, tells_a_wait_for_the_reader_that_ends_otherwise) {
    programs.answers["thread"][1] = 128;
    EXPECT_FAILURE(start(), "Custom check returned no value");
    EXPECT_TRUE(host.logged(LOG_ERROR, "Unknown return value 128 from WaitForSingleObject in close_thread"));
    programs.join();
    EXPECT_TRUE(starts_again());
}
