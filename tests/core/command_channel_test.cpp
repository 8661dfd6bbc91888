#include "core/command_channel.h"

#include "core/neighbours.h"
#include "core/start_fixture.h"

// The replies that need a server are those of the whole agent's scenarios; here no server can be reached.
struct command_channel : start_fixture {
    command_channel() {
        write_settings();
        start();
        log_set_level(LOG_TRACE);
        static const sockets_ops nowhere = {
            .inet_addr = [](const char *) { return UINT32_MAX; },
            .gethostbyname = [](const char *, uint32_t *, uint32_t *) { return "unknown host"; }};
        sockets_host = &nowhere;
    }
    ~command_channel() override {
        close_command_pipe();
        EXPECT_EQ(beside.open_handles, 0);
    }

    void serve() {
        host.wait_answers = {0};
        wait_for_object(10);
    }
    std::string reply() { return beside.written.empty() ? "(none)" : beside.written.back(); }
};

static constexpr const char *UNREACHABLE = "FAILURE setup_connection: Error resolving \"one\": unknown host";

TEST_F(command_channel, is_set_up_and_waits_for_a_client) {
    setup_command_named_pipe();
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] Created named pipe GLE=0"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] ConnectNamedPipe -> OK (IO_PENDING)"));
    EXPECT_EQ(host.count_logged("[cmd] add_wait_event(g_pipe_event) -> 0x"), 1);
    EXPECT_TRUE(beside.set_events.empty());
}

TEST_F(command_channel, is_signalled_for_a_client_that_is_there_already) {
    beside.connects = {ERROR_PIPE_IS_OPEN};
    setup_command_named_pipe();
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] ConnectNamedPipe -> ERROR_PIPE_CONNECTED"));
    EXPECT_EQ(beside.set_events.size(), 1U);
}

TEST_F(command_channel, that_cannot_wait_for_a_client_is_fatal) {
    beside.connects = {536};
    expect_fatal(setup_command_named_pipe, "ConnectNamedPipe failed");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] ConnectNamedPipe -> GetLastError=536"));
    beside.connects = {0};
    expect_fatal(setup_command_named_pipe, "ConnectNamedPipe failed");
}

TEST_F(command_channel, of_a_second_agent_is_fatal) {
    beside.pipe_refused = true;
    expect_fatal(setup_command_named_pipe, "CreateNamedPipe failed");
}

TEST_F(command_channel, without_an_event_is_fatal) {
    beside.event_refused_at = 1;
    expect_fatal(setup_command_named_pipe, "CreateEvent failed in setup_command_named_pipe");
}

TEST_F(command_channel, stays_silent_where_the_wait_table_is_full) {
    auto *other = reinterpret_cast<waitable *>(&host);
    for (int i = 0; i < 4; i++)
        add_wait_event(other);
    setup_command_named_pipe();
    EXPECT_TRUE(host.logged(LOG_ERROR, "[cmd] add_wait_event(g_pipe_event) failed"));
    serve();
    EXPECT_EQ(host.count_logged("[cmd] handle_named_pipe"), 0);
    close_command_pipe();
    EXPECT_TRUE(host.logged(LOG_WARNING, "del_wait_event() failed for g_pipe_event"));
}

TEST_F(command_channel, opens_a_connection_ahead_of_reading_and_tells_why_there_is_none) {
    setup_command_named_pipe();
    beside.reads = {{"DOWN 5\n"}};
    serve();
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] wait_for_object Got 1"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] handle_named_pipe"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "handle_named_pipe Got \"DOWN 5\n\""));
    EXPECT_EQ(reply(), UNREACHABLE);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "handle_named_pipe: Wrote " + std::to_string(strlen(UNREACHABLE)) +
                                            " bytes back"));
    EXPECT_EQ(beside.armed, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(beside.calls, (std::vector<std::string>{"create", "flush", "disconnect"}));
}

TEST_F(command_channel, answers_an_empty_message) {
    setup_command_named_pipe();
    beside.reads = {{""}};
    serve();
    EXPECT_EQ(reply(), "FAILURE empty command");
    EXPECT_EQ(host.count_logged("handle_named_pipe Got"), 0);
    EXPECT_EQ(beside.armed.size(), 3U);
}

TEST_F(command_channel, takes_a_message_of_1024_bytes) {
    setup_command_named_pipe();
    beside.reads = {{std::string(1024, 'x')}};
    serve();
    EXPECT_TRUE(host.logged(LOG_NORMAL, "handle_named_pipe Got \"" + std::string(1024, 'x') + "\""));
    EXPECT_EQ(reply(), UNREACHABLE);
}

TEST_F(command_channel, ends_behind_a_client_that_was_never_there) {
    setup_command_named_pipe();
    beside.connects = {536};
    serve();
    EXPECT_TRUE(host.logged(LOG_ERROR, "handle_named_pipe: not connected GLE=536"));
    EXPECT_EQ(beside.armed, (std::vector<bool>{true, false}));
    EXPECT_EQ(beside.calls, std::vector<std::string>{"create"});
}

TEST_F(command_channel, takes_a_client_that_connects_in_time) {
    setup_command_named_pipe();
    beside.connects = {0};
    beside.reads = {{"DOWN 5"}};
    serve();
    EXPECT_EQ(reply(), UNREACHABLE);
}

TEST_F(command_channel, ends_behind_a_client_that_vanished) {
    setup_command_named_pipe();
    beside.reads = {{"", ERROR_PIPE_ENDED}};
    serve();
    EXPECT_TRUE(
        host.logged(LOG_ERROR, "handle_named_pipe: ReadFile failed GLE=109(ERROR_BROKEN_PIPE) bytesRead=0"));
    EXPECT_EQ(beside.armed, (std::vector<bool>{true, false}));
}

TEST_F(command_channel, ends_behind_a_message_that_is_too_long) {
    setup_command_named_pipe();
    beside.reads = {{std::string(1024, 'x'), 234}};
    serve();
    EXPECT_TRUE(host.logged(LOG_ERROR, "handle_named_pipe: ReadFile failed GLE=234 bytesRead=1024"));
}

TEST_F(command_channel, waits_a_minute_for_a_silent_client_and_no_longer) {
    setup_command_named_pipe();
    for (int i = 0; i < 60; i++)
        beside.reads.push_back({"", WAIT_ENDED});
    beside.reads.push_back({"DOWN 5"});
    serve();
    EXPECT_EQ(reply(), UNREACHABLE);
    beside.reads.clear();
    serve();
    EXPECT_TRUE(host.logged(LOG_ERROR, "handle_named_pipe: ReadFile failed GLE=258 bytesRead=0"));
}

TEST_F(command_channel, does_not_wait_for_a_silent_client_when_the_agent_is_to_stop) {
    setup_command_named_pipe();
    terminate_flag = 1;
    beside.reads = {{"", WAIT_ENDED}, {"DOWN 5"}};
    serve();
    EXPECT_EQ(beside.reads.size(), 1U);
}

TEST_F(command_channel, goes_on_behind_a_client_that_takes_no_reply) {
    setup_command_named_pipe();
    beside.reads = {{"DOWN 5"}};
    beside.write_code = 232;
    beside.disconnect_code = 6;
    serve();
    EXPECT_TRUE(host.logged(LOG_ERROR, "handle_named_pipe: WriteFile failed GLE=232"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "handle_named_pipe: DisconnectNamedPipe GLE=6"));
    EXPECT_EQ(beside.armed.size(), 3U);
}

TEST_F(command_channel, serves_a_client_that_comes_before_the_pipe_is_armed_again) {
    setup_command_named_pipe();
    beside.reads = {{"one"}};
    beside.connects = {ERROR_PIPE_IS_OPEN, ERROR_PIPE_IS_OPEN};
    serve();
    EXPECT_EQ(beside.set_events.size(), 1U);
}

TEST_F(command_channel, resets_its_event_ahead_of_serving) {
    beside.connects = {ERROR_PIPE_IS_OPEN};
    setup_command_named_pipe();
    beside.reads = {{"one"}};
    serve();
    EXPECT_TRUE(beside.set_events.empty());
}

TEST_F(command_channel, is_taken_away_whole) {
    setup_command_named_pipe();
    close_command_pipe();
    EXPECT_EQ(beside.calls, (std::vector<std::string>{"create", "disconnect", "close"}));
    host.wait_answers = {0};
    add_wait_event(reinterpret_cast<waitable *>(&host));
    wait_for_object(1);
    EXPECT_EQ(host.count_logged("[cmd] handle_named_pipe"), 0);
    close_command_pipe(); // again, as fatal may
    EXPECT_EQ(host.count_logged("failed for g_pipe_event"), 0);
}
