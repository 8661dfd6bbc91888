#include "custom/real_programs.h"

#include <atomic>
#include <cstring>

// What both hosts must do with real programs.

namespace {
struct custom_host_programs : real_programs {};
struct nasty_program : real_programs {};
struct started_action : real_programs {};
} // namespace

TEST_F(custom_host_programs, give_their_output_and_their_exit_code) {
    EXPECT_SUCCESS(run("line noise line \"Result: 42\""));
    EXPECT_EQ(result.value, 42);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : noise"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Exit code: 0"));
    EXPECT_FAILURE(run("line \"Result: 7\" exit 2"), "Failed with exit code 2");
    check.no_value_exitcode = 2;
    EXPECT_EQ(run("line \"Result: 7\" exit 2"), CHECK_NO_RESULT);
}

TEST_F(custom_host_programs, may_write_to_either_stream) {
    EXPECT_SUCCESS(run("error \"Result: 43\""));
    EXPECT_EQ(result.value, 43);
}

TEST_F(custom_host_programs, may_leave_the_last_line_feed_out) {
    EXPECT_SUCCESS(run("write \"Result: 42\""));
    EXPECT_EQ(result.value, 42);
}

TEST_F(custom_host_programs, may_write_when_they_end) {
    EXPECT_SUCCESS(run("at-exit \"Result: 44\""));
    EXPECT_EQ(result.value, 44);
}

TEST_F(custom_host_programs, may_write_a_megabyte_in_one_line) {
    EXPECT_SUCCESS(run("long 1000000 line \"Result: 45\""));
    EXPECT_EQ(result.value, 45);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : " + std::string(256, 'x')));
    EXPECT_EQ(host.count_logged("c : " + std::string(256, 'x')), 1000000 / 256);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : " + std::string(1000000 % 256, 'x')));
}

TEST_F(custom_host_programs, get_their_words_as_they_stand) {
    EXPECT_SUCCESS(run("line \"a  b\" line \"\" line \"Result: 1\""));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : a  b"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : "));
}

TEST_F(custom_host_programs, that_are_not_there_fail_in_the_words_of_the_system) {
    check.type = CUSTOM_Boolean;
    std::string failure = noted_failure(run_command("/nowhere/program x"));
    EXPECT_EQ(failure.find("Failed executing '/nowhere/program x': "), 0U);
    EXPECT_GT(failure.size(), strlen("Failed executing '/nowhere/program x': "));
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(custom_host_programs, have_an_end_that_does_not_wait_for_the_limit) {
    EXPECT_SUCCESS(run("line \"Result: 1\""));
    EXPECT_LT(seconds(), 10);
}

TEST_F(custom_host_programs, are_not_inherited_by_those_that_run_at_the_same_time) {
    check.timeout = 20;
    // The action holds nothing of the run's pipe, which therefore ends with its program.
    std::string line = command("mark " + mark() + " sleep");
    EXPECT_SUCCESS(start_action("a", line.c_str()));
    EXPECT_SUCCESS(run("line \"Result: 1\""));
    EXPECT_LT(seconds(), 10);
    std::vector<int> action = wait_for_marks(1);
    ASSERT_EQ(action.size(), 1U);
    end_process(action[0]);
    expect_dead(1);
}

TEST_F(custom_host_programs, leave_nothing_behind_thirty_of_them) {
    int64_t blocks = host.blocks;
    for (int i = 0; i < 30; i++)
        ASSERT_EQ(noted_failure(run("line \"Result: 1\"")), "(none)") << i;
    EXPECT_EQ(host.blocks, blocks);
}

// ---- the host's answers, without a program

namespace {
struct custom_host_answers : real_programs {};

// Atomic, since the end of the thread is seen by a wait that checkers of threads do not know.
struct waiting_read {
    output_pipe *end = nullptr;
    std::atomic<bool> ok = true;
    std::atomic<uint32_t> error = 0;
};

uint32_t read_one(void *argument) {
    auto *read = static_cast<waiting_read *>(argument);
    char buffer[16];
    uint32_t length = 0;
    uint32_t error = 0;
    read->ok = custom_ops_host.ReadFile(read->end, buffer, sizeof buffer, &length, &error);
    read->error = error;
    return 0;
}
} // namespace

// The write end stays open, so nothing but the cancelling ends them.
TEST_F(custom_host_answers, end_reads_that_are_cancelled_early_or_late) {
    for (bool early : {true, false}) {
        output_pipe *write_end = nullptr;
        waiting_read read;
        ASSERT_TRUE(custom_ops_host.CreatePipe(&read.end, &write_end));
        if (early) custom_ops_host.CancelIoEx(read.end);
        waitable *thread = custom_ops_host.CreateThread(read_one, &read);
        ASSERT_NE(thread, nullptr);
        if (!early) {
            EXPECT_EQ(custom_ops_host.WaitForSingleObject(thread, 100), OBJECT_TIMEOUT);
            custom_ops_host.CancelIoEx(read.end);
        }
        EXPECT_EQ(custom_ops_host.WaitForSingleObject(thread, 10'000), OBJECT_SIGNALLED);
        EXPECT_FALSE(read.ok);
        EXPECT_NE(read.error, ERROR_OUTPUT_ENDED);
        custom_ops_host.CloseHandle(thread);
        custom_ops_host.ClosePipe(read.end);
        custom_ops_host.ClosePipe(write_end);
    }
}

TEST_F(custom_host_answers, tell_the_end_of_the_output) {
    output_pipe *write_end = nullptr;
    waiting_read read;
    ASSERT_TRUE(custom_ops_host.CreatePipe(&read.end, &write_end));
    custom_ops_host.ClosePipe(write_end);
    read_one(&read);
    EXPECT_FALSE(read.ok);
    EXPECT_EQ(read.error, ERROR_OUTPUT_ENDED);
    custom_ops_host.ClosePipe(read.end);
}

TEST_F(custom_host_answers, reset_an_event_by_the_wait_that_it_ends) {
    waitable *event = custom_ops_host.CreateEventA();
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(event, 0), OBJECT_TIMEOUT);
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(event, 30), OBJECT_TIMEOUT);
    EXPECT_TRUE(custom_ops_host.SetEvent(event));
    EXPECT_TRUE(custom_ops_host.SetEvent(event));
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(event, 10'000), OBJECT_SIGNALLED);
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(event, 0), OBJECT_TIMEOUT);
    EXPECT_TRUE(custom_ops_host.SetEvent(event));
    EXPECT_TRUE(custom_ops_host.ResetEvent(event));
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(event, 0), OBJECT_TIMEOUT);
    custom_ops_host.CloseHandle(event);
}

namespace {
struct two_events {
    waitable *there;
    waitable *back;
    int rounds;
};

// Gives each signal back, at once and late in turn.
uint32_t give_back(void *argument) {
    auto *events = static_cast<two_events *>(argument);
    for (int i = 0; i < events->rounds; i++) {
        custom_ops_host.WaitForSingleObject(events->there, WAIT_WITHOUT_LIMIT);
        if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        custom_ops_host.SetEvent(events->back);
    }
    return 0;
}
} // namespace

TEST_F(custom_host_answers, lose_no_signal_of_an_event) {
    two_events events = {custom_ops_host.CreateEventA(), custom_ops_host.CreateEventA(), 2000};
    waitable *thread = custom_ops_host.CreateThread(give_back, &events);
    for (int i = 0; i < events.rounds; i++) {
        ASSERT_TRUE(custom_ops_host.SetEvent(events.there));
        ASSERT_EQ(custom_ops_host.WaitForSingleObject(events.back, 10'000), OBJECT_SIGNALLED) << i;
    }
    EXPECT_EQ(custom_ops_host.WaitForSingleObject(thread, 10'000), OBJECT_SIGNALLED);
    for (waitable *object : {thread, events.there, events.back})
        custom_ops_host.CloseHandle(object);
}

TEST_F(custom_host_answers, give_a_time_that_goes_on_in_units_of_100_nanoseconds) {
    uint64_t before = custom_ops_host.GetSystemTime();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    uint64_t passed = custom_ops_host.GetSystemTime() - before;
    EXPECT_GE(passed, 1'500'000U);
    EXPECT_LT(passed, 100'000'000U);
}

// ---- nasty ones

TEST_F(nasty_program, that_ignores_its_termination_is_killed) {
    check.timeout = 1;
    EXPECT_FAILURE(run("ignore mark " + mark() + " sleep"), "Timeout (1 s)");
    EXPECT_GE(seconds(), 0.9);
    expect_dead(1);
}

TEST_F(nasty_program, that_closes_its_output_and_goes_on_is_killed) {
    check.timeout = 1;
    EXPECT_FAILURE(run("line \"Result: 1\" mark " + mark() + " close sleep"), "Timeout (1 s)");
    EXPECT_EQ(host.count_logged("Sleep timed out"), host_is_wine() ? 1 : 0);
    expect_dead(1);
}

TEST_F(nasty_program, that_writes_without_end_is_killed) {
    log_set_level(LOG_NORMAL);
    check.timeout = 1;
    EXPECT_FAILURE(run("mark " + mark() + " flood"), "Timeout (1 s)");
    EXPECT_LT(seconds(), 15);
    expect_dead(1);
}

TEST_F(nasty_program, that_writes_a_byte_a_second_is_killed) {
    check.timeout = 2;
    EXPECT_FAILURE(run("mark " + mark() + " drip"), "Timeout (2 s)");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Data on pipe: status=1, 1 bytes, err=0"));
    expect_dead(1);
}

TEST_F(nasty_program, whose_child_keeps_the_output_open_is_killed_with_it) {
    check.timeout = 2;
    EXPECT_FAILURE(run("child mark " + mark() + " sleep . line \"Result: 1\""), "Timeout (2 s)");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c*: Result: 1"));
    expect_dead(1);
}

TEST_F(nasty_program, whose_orphan_keeps_the_output_open_is_killed_with_it) {
    check.timeout = 2;
    EXPECT_FAILURE(run("orphan mark " + mark() + " sleep . exit 0"), "Timeout (2 s)");
    expect_dead(1);
}

TEST_F(nasty_program, with_a_whole_tree_below_it_is_killed_with_it) {
    check.timeout = 3;
    std::string tree = "mark " + mark() + " child mark " + mark() + " orphan mark " + mark() +
                       " ignore child mark " + mark() + " sleep . sleep . sleep . sleep";
    EXPECT_FAILURE(run(tree), "Timeout (3 s)");
    expect_dead(4);
}

TEST_F(nasty_program, is_killed_with_its_tree_by_a_value_that_is_refused) {
    EXPECT_FAILURE(run("orphan mark " + mark() + " line \"Result: -5\" sleep . sleep"),
                   "c: Error parsing result \"-5\": Negative numbers are not supported");
    EXPECT_LT(seconds(), 15);
    expect_dead(1);
}

TEST_F(nasty_program, leaves_behind_its_own_end_what_holds_nothing_of_it) {
    EXPECT_SUCCESS(run("orphan close mark " + mark() + " sleep . line \"Result: 6\""));
    std::vector<int> orphan = wait_for_marks(1);
    ASSERT_EQ(orphan.size(), 1U);
    EXPECT_TRUE(process_lives(orphan[0]));
    end_process(orphan[0]);
    expect_dead(1);
}

// ---- actions

TEST_F(started_action, lives_on_by_itself) {
    std::string line = command("mark " + mark() + " child mark " + mark() + " sleep . sleep");
    EXPECT_SUCCESS(start_action("a", line.c_str()));
    std::vector<int> numbers = wait_for_marks(2);
    ASSERT_EQ(numbers.size(), 2U);
    for (int number : numbers) {
        EXPECT_TRUE(process_lives(number));
        end_process(number);
    }
    expect_dead(2);
}

TEST_F(started_action, leaves_nothing_behind_its_end) {
    std::string line = command("mark " + mark());
    for (size_t i = 1; i <= 5; i++) {
        EXPECT_SUCCESS(start_action("a", line.c_str()));
        ASSERT_EQ(wait_for_marks(i).size(), i);
    }
    expect_dead(5);
}

TEST_F(started_action, that_is_not_there_is_told_in_the_words_of_the_system) {
    std::string failure = noted_failure(start_action("a", "/nowhere/program"));
    EXPECT_EQ(failure.find("AgentAction \"a\", failed executing \"/nowhere/program\": "), 0U);
}
