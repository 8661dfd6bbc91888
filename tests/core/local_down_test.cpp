#include "core/local_down.h"

#include "core/neighbours.h"
#include "core/start_fixture.h"

struct local_down : start_fixture {
    local_down() {
        beside.open_code = 0;
        quiet_flag = 1;
    }
    int status() {
        try {
            try_local_down(5);
        } catch (const process_ended &end) {
            return end.status;
        }
        return -1;
    }
    // The log is on stderr as well, ahead of the reply.
    void expect_shown(const std::string &text) { EXPECT_TRUE(errors.ends_with(text)) << errors; }
};

TEST_F(local_down, asks_a_running_agent_and_ends_with_its_reply) {
    beside.reads = {{"OK granted"}};
    EXPECT_EQ(status(), 0);
    EXPECT_EQ(beside.written, std::vector<std::string>{"DOWN 5\n"});
    expect_shown("OK granted\n");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] send_command \"DOWN 5\n\""));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] ReadFile OK: \"OK granted\""));
    EXPECT_EQ(beside.calls, std::vector<std::string>{"close"});
}

TEST_F(local_down, comes_ahead_of_the_settings) {
    beside.reads = {{"OK granted"}};
    EXPECT_EQ(status_of({"--down=7", "--quiet"}), 0);
    EXPECT_EQ(beside.written, std::vector<std::string>{"DOWN 7\n"});
    EXPECT_EQ(config_in_force, nullptr);
}

TEST_F(local_down, waits_for_a_slow_agent_without_limit) {
    for (int i = 0; i < 2000; i++)
        beside.reads.push_back({"", WAIT_ENDED});
    beside.reads.push_back({"OK late"});
    EXPECT_EQ(status(), 0);
}

TEST_F(local_down, does_not_wait_for_a_busy_agent) {
    beside.open_code = ERROR_PIPE_IS_BUSY;
    EXPECT_EQ(status(), 1);
    expect_shown("FAILURE Agent is busy. Try later.\n");
    EXPECT_EQ(host.count_logged("Expected ERROR_PIPE_BUSY"), 0);
}

TEST_F(local_down, ends_like_busy_where_the_agent_refuses_the_caller) {
    beside.open_code = beside.refusal = 13;
    EXPECT_EQ(status(), 1);
    expect_shown("FAILURE Agent is busy. Try later.\n");
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] CreateFile -> system error 13"));
}

TEST_F(local_down, goes_on_where_no_agent_runs) {
    beside.open_code = 2;
    EXPECT_EQ(status(), -1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] CreateFile -> Expected ERROR_PIPE_BUSY"));
    EXPECT_TRUE(host.logged(LOG_DETAIL,
                            "[cmd] could not connect to running agent: FAILURE Could not connect to "
                            "agent (expected busy pipe)"));
}

TEST_F(local_down, takes_any_other_code_for_no_agent_where_refusals_are_not_known) {
    beside.pipe_ops.is_refusal = nullptr;
    beside.open_code = beside.refusal = 13;
    EXPECT_EQ(status(), -1);
}

TEST_F(local_down, tells_of_a_command_that_cannot_be_written) {
    beside.write_code = 232;
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] send_command: WriteFile failed GLE=232"));
    expect_shown("FAILURE Could write command to agent\n");
    EXPECT_EQ(beside.calls, std::vector<std::string>{"close"});
}

TEST_F(local_down, tells_of_an_agent_that_dies) {
    beside.reads = {{"", ERROR_PIPE_ENDED}};
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] ReadFile failed 109 ERROR_BROKEN_PIPE"));
    expect_shown("FAILURE Could not read command result from agent\n");
}

TEST_F(local_down, tells_of_a_reply_that_cannot_be_read) {
    beside.reads = {{"OK", 234}};
    EXPECT_EQ(status(), 1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] ReadFile failed 234"));
    expect_shown("FAILURE Could not read command result from agent\n");
}

TEST_F(local_down, tells_of_an_empty_reply) {
    beside.reads = {{""}};
    EXPECT_EQ(status(), 1);
    expect_shown("FAILURE Got empty command result from agent\n");
}

TEST_F(local_down, keeps_the_end_of_a_reply_that_fills_the_buffer) {
    beside.reads = {{"OK " + std::string(1021, 'x')}};
    EXPECT_EQ(status(), 0);
    expect_shown("OK " + std::string(1021, 'x') + "\n");
}

TEST_F(local_down, takes_a_short_reply_for_a_failure) {
    for (const char *reply : {"OK", "OK "}) {
        beside.reads = {{reply}};
        EXPECT_EQ(status(), 1);
        expect_shown("Too short message from server received\n");
    }
}

TEST_F(local_down, shows_its_result_in_a_box_where_somebody_looks) {
    quiet_flag = 0;
    EXPECT_EQ(show_down_result("OK granted"), 0);
    EXPECT_EQ(show_down_result("FAILURE no"), 1);
    EXPECT_EQ(show_down_result("OK"), 1);
    EXPECT_EQ(errors, "");
    EXPECT_EQ(beside.boxes,
              (std::vector<std::string>{
                  "Tarnix: Set Agent In Downtime|OK granted|", "Tarnix: Set Agent In Downtime|FAILURE no|!",
                  "Tarnix: Set Agent In Downtime|Too short message from server received|!"}));
}

TEST_F(local_down, prints_its_result_where_nobody_would_look) {
    quiet_flag = 0;
    beside.pipe_ops.MessageBoxA = nullptr;
    EXPECT_EQ(show_down_result("OK granted"), 0);
    expect_shown("OK granted\n");
}
