#include "platform/sockets.h"

#include "platform/scripted_sockets.h"
#include "platform/waits.h"

class sockets : public testing::Test {
protected:
    test_host host;
    scripted_sockets script;
    socket_handle made = -2;

    void SetUp() override {
        host.error_words[5] = "Access is denied.";
        host.error_words[111] = "Connection refused";
    }

    const char *create(uint32_t options = SOCKET_NONBLOCKING | SOCKET_STREAM) {
        return socket_create(99, 3241, &made, options);
    }

    // An answer of select, `count` times a second of silence before it.
    void answer_after(uint32_t seconds, const socket_answer &answer) {
        for (uint32_t i = 0; i < seconds; i++)
            script.selects.push_back({0});
        script.selects.push_back(answer);
    }
};

static constexpr socket_answer BLOCKED = {-1, WOULD_BLOCK};
static constexpr socket_answer BROKEN = {-1, 5};

TEST_F(sockets, start_once) {
    EXPECT_SUCCESS(socket_init());
    EXPECT_SUCCESS(socket_init());
    EXPECT_EQ(script.take_calls(), "startup 2");
}

TEST_F(sockets, start_again_after_a_failure) {
    script.startup_code = 5;
    EXPECT_FAILURE(socket_init(), "Error with wsastartup: Access is denied. (5)\n");
    script.startup_code = 0;
    EXPECT_SUCCESS(socket_init());
    EXPECT_EQ(script.take_calls(), "startup 2, startup 2");
}

TEST_F(sockets, resolve_a_dotted_address_without_the_name_service) {
    uint32_t address = 0;
    script.dotted = 0x0100007F;
    EXPECT_SUCCESS(socket_resolve("127.0.0.1", &address));
    EXPECT_EQ(address, 0x0100007FU);
    EXPECT_EQ(script.take_calls(), "");
}

TEST_F(sockets, resolve_a_name_to_its_first_address) {
    uint32_t address = 0;
    script.addresses = {17, 18};
    EXPECT_SUCCESS(socket_resolve("server", &address));
    EXPECT_EQ(address, 17U);
    EXPECT_EQ(script.take_calls(), "resolve server");
}

TEST_F(sockets, resolve_the_broadcast_address_as_a_name) {
    uint32_t address = 0;
    script.addresses = {17};
    EXPECT_SUCCESS(socket_resolve("255.255.255.255", &address)); // all ones, as for what is no address
    EXPECT_EQ(address, 17U);
}

TEST_F(sockets, tell_why_a_name_is_not_resolved) {
    uint32_t address = 0;
    script.name_failure = "Unknown host";
    EXPECT_FAILURE(socket_resolve("nowhere", &address), "Error resolving \"nowhere\": Unknown host");
    script.name_failure = nullptr;
    EXPECT_FAILURE(socket_resolve("nowhere", &address), "No addresses found when resolving \"nowhere\"");
}

TEST_F(sockets, connect_at_once) {
    script.connects = {{0}};
    EXPECT_SUCCESS(create());
    EXPECT_EQ(made, 7);
    EXPECT_EQ(script.take_calls(), "socket, nonblocking on, nodelay off, connect 99:3241");
}

TEST_F(sockets, take_their_options_from_the_bits) {
    script.connects = {{0}, {0}, {0}, {0}};
    EXPECT_SUCCESS(create(0));
    EXPECT_EQ(script.take_calls(), "socket, nonblocking off, nodelay off, connect 99:3241");
    EXPECT_SUCCESS(create(SOCKET_NONBLOCKING));
    EXPECT_EQ(script.take_calls(), "socket, nonblocking on, nodelay off, connect 99:3241");
    EXPECT_SUCCESS(create(SOCKET_STREAM));
    EXPECT_EQ(script.take_calls(), "socket, nonblocking off, nodelay off, connect 99:3241");
    EXPECT_SUCCESS(create(SOCKET_NODELAY));
    EXPECT_EQ(script.take_calls(), "socket, nonblocking off, nodelay on, connect 99:3241");
}

TEST_F(sockets, connect_within_ten_minutes) {
    script.connects = {BLOCKED};
    answer_after(599, {1, 0, {.writable = true}});
    EXPECT_SUCCESS(create());
    EXPECT_EQ(made, 7);
    EXPECT_TRUE(script.selects.empty());
}

TEST_F(sockets, wait_for_a_connection_in_the_write_and_exception_sets) {
    script.connects = {BLOCKED};
    answer_after(0, {1, 0, {.writable = true, .exception = true}});
    EXPECT_SUCCESS(create());
    EXPECT_EQ(script.take_calls(), "socket, nonblocking on, nodelay off, connect 99:3241, select we 1");
}

TEST_F(sockets, give_up_connecting_after_ten_minutes_whatever_the_time_out) {
    socket_set_timeout(3);
    script.connects = {BLOCKED};
    answer_after(599, {0});
    EXPECT_FAILURE(create(), "Connection timed out");
    EXPECT_EQ(script.calls.back(), "close");
    EXPECT_TRUE(script.selects.empty());
}

TEST_F(sockets, give_up_connecting_within_a_second_of_a_stop) {
    terminate_flag = 1;
    script.connects = {BLOCKED};
    answer_after(0, {0});
    EXPECT_FAILURE(create(), "Connection timed out");
}

// The failures of socket_create, each with the socket closed behind it and nothing handed out.

TEST_F(sockets, fail_to_be_made) {
    script.broken = "socket";
    EXPECT_FAILURE(create(), "Error creating socket: Access is denied. (5)");
    EXPECT_EQ(script.take_calls(), "socket");
    EXPECT_EQ(made, -2);
}

TEST_F(sockets, fail_to_become_nonblocking) {
    script.broken = "nonblocking";
    EXPECT_FAILURE(create(), "Error setting socket to nonblocking: Access is denied. (5)");
    EXPECT_EQ(script.take_calls(), "socket, nonblocking on, close");
    EXPECT_EQ(made, -2);
}

TEST_F(sockets, fail_to_set_the_delay) {
    script.broken = "nodelay";
    EXPECT_FAILURE(create(), "Error disabling Nagle: Access is denied. (5)");
    EXPECT_EQ(script.calls.back(), "close");
}

TEST_F(sockets, fail_to_connect_at_once) {
    script.connects = {{-1, 111}};
    EXPECT_FAILURE(create(), "Error connecting: Connection refused (111)");
    EXPECT_EQ(script.calls.back(), "close");
    EXPECT_EQ(made, -2);
}

TEST_F(sockets, tell_a_failed_connection_by_its_status) {
    script.connects = {BLOCKED};
    script.status = 111;
    answer_after(2, {1, 0, {.exception = true}});
    EXPECT_FAILURE(create(), "Error connecting: Connection refused (111)");
    EXPECT_EQ(script.calls.back(), "close");
}

TEST_F(sockets, tell_a_status_that_cannot_be_had) {
    script.connects = {BLOCKED};
    script.broken = "so_error";
    answer_after(0, {1, 0, {.exception = true}});
    EXPECT_FAILURE(create(), "Error retrieving connection status: Access is denied. (5)");
    EXPECT_EQ(script.calls.back(), "close");
}

TEST_F(sockets, tell_what_a_strange_select_returned) {
    script.connects = {BLOCKED, BLOCKED};
    answer_after(0, {-1, 5});
    EXPECT_FAILURE(create(), "Error connecting: Select returned: -1");
    answer_after(0, {2, 0, {.writable = true}});
    EXPECT_FAILURE(create(), "Error connecting: Select returned: 2");
    EXPECT_EQ(script.calls.back(), "close");
}

TEST_F(sockets, tell_a_select_in_neither_set) {
    script.connects = {BLOCKED};
    answer_after(0, {1});
    EXPECT_FAILURE(create(), "Error connecting: Select returned, but socket isn't present");
    EXPECT_EQ(script.calls.back(), "close");
}

TEST_F(sockets, send_in_as_many_pieces_as_it_takes) {
    script.sends = {{3}, {1}, {4}};
    EXPECT_SUCCESS(socket_send(7, "abcdefgh", 8));
    EXPECT_EQ(script.take_calls(), "send abcdefgh, send defgh, send efgh");
}

TEST_F(sockets, send_nothing_in_one_call) {
    script.sends = {{0}};
    EXPECT_SUCCESS(socket_send(7, "", 0));
    EXPECT_EQ(script.take_calls(), "send ");
}

TEST_F(sockets, send_on_when_there_is_room_again) {
    script.sends = {{3}, BLOCKED, {5}};
    answer_after(2, {1, 0, {.writable = true}});
    EXPECT_SUCCESS(socket_send(7, "abcdefgh", 8));
    EXPECT_EQ(script.take_calls(),
              "send abcdefgh, send defgh, select w 1, select w 1, select w 1, send defgh");
}

TEST_F(sockets, fail_to_send) {
    script.sends = {BROKEN};
    EXPECT_FAILURE(socket_send(7, "abc", 3),
                   "Bad error without sleep happened in socket_send(): Access is denied. (5)");
}

TEST_F(sockets, fail_to_wait_for_room) {
    script.sends = {BLOCKED, BLOCKED};
    answer_after(0, {-1, 5});
    EXPECT_FAILURE(socket_send(7, "abc", 3),
                   "Bad error after sleep happened in socket_send(): Access is denied. (5)");
    answer_after(0, {2, 5});
    EXPECT_FAILURE(socket_send(7, "abc", 3),
                   "Bad error after sleep happened in socket_send(): Access is denied. (5)");
}

TEST_F(sockets, give_up_sending_after_the_time_out) {
    socket_set_timeout(3);
    script.sends = {BLOCKED};
    answer_after(2, {0});
    EXPECT_FAILURE(socket_send(7, "abc", 3), "Timeout in socket_send()");
    EXPECT_TRUE(script.selects.empty());
}

TEST_F(sockets, notice_that_too_much_was_sent) {
    script.sends = {{3}, {6}};
    EXPECT_FAILURE(socket_send(7, "abcdefgh", 8), "send() sent too much - this is a Winsock error");
}

TEST_F(sockets, receive_what_there_is) {
    script.receives = {{3}};
    char buffer[8] = {};
    size_t count = 0;
    EXPECT_SUCCESS(socket_recv(7, buffer, sizeof buffer, &count));
    EXPECT_EQ(std::string(buffer, count), "abc");
    EXPECT_EQ(script.take_calls(), "recv 8");
}

TEST_F(sockets, receive_nothing_from_a_peer_that_closes) {
    script.receives = {{0}};
    char buffer[8];
    size_t count = 99;
    EXPECT_SUCCESS(socket_recv(7, buffer, sizeof buffer, &count));
    EXPECT_EQ(count, 0U);
}

TEST_F(sockets, receive_when_something_has_come) {
    script.receives = {BLOCKED, BLOCKED, {2}};
    answer_after(1, {1, 0, {.readable = true}});
    answer_after(0, {1, 0, {.readable = true}}); // and it was not for us
    char buffer[8];
    size_t count = 0;
    EXPECT_SUCCESS(socket_recv(7, buffer, sizeof buffer, &count));
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(script.take_calls(), "recv 8, select r 1, select r 1, recv 8, select r 1, recv 8");
}

TEST_F(sockets, fail_to_receive) {
    script.receives = {BROKEN};
    char buffer[8];
    size_t count = 99;
    EXPECT_FAILURE(socket_recv(7, buffer, sizeof buffer, &count),
                   "Bad error happened without sleep in socket_recv(): Access is denied. (5)");
    EXPECT_EQ(count, 99U);
}

TEST_F(sockets, fail_to_wait_for_data) {
    char buffer[8];
    size_t count;
    for (int32_t strange : {-1, 2}) {
        script.receives = {BLOCKED};
        answer_after(0, {strange, 5});
        EXPECT_FAILURE(socket_recv(7, buffer, sizeof buffer, &count),
                       "Bad error happened in socket_recv(): Access is denied. (5)");
    }
}

TEST_F(sockets, give_up_receiving_after_the_time_out) {
    char buffer[8];
    size_t count;
    script.receives = {BLOCKED, BLOCKED};
    answer_after(SOCKET_DEFAULT_TIMEOUT - 1, {0});
    EXPECT_FAILURE(socket_recv(7, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
    EXPECT_TRUE(script.selects.empty());
    terminate_flag = 1;
    answer_after(0, {0});
    EXPECT_FAILURE(socket_recv(7, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
}

TEST_F(sockets, have_a_time_out_of_ten_minutes_unless_told) {
    EXPECT_EQ(socket_timeout(), 600U);
    socket_set_timeout(5);
    EXPECT_EQ(socket_timeout(), 5U);
    socket_set_timeout(0);
    EXPECT_EQ(socket_timeout(), 600U);
}

TEST_F(sockets, need_no_flush) {
    EXPECT_SUCCESS(socket_flush(7));
    EXPECT_EQ(script.take_calls(), "");
}

TEST_F(sockets, close_in_three_steps) {
    EXPECT_SUCCESS(socket_close(7));
    EXPECT_EQ(script.take_calls(), "nonblocking off, shutdown, close");
}

TEST_F(sockets, stay_open_where_they_cannot_block) {
    script.broken = "nonblocking";
    EXPECT_FAILURE(socket_close(7), "socket_close: Error at ioctlsocket: Access is denied. (5)");
    EXPECT_EQ(script.take_calls(), "nonblocking off");
}

TEST_F(sockets, close_whatever_the_shutdown_says) {
    script.broken = "shutdown";
    EXPECT_SUCCESS(socket_close(7));
}

TEST_F(sockets, tell_that_they_cannot_be_closed) {
    script.broken = "close";
    EXPECT_FAILURE(socket_close(7), "Error closing socket: Access is denied. (5)");
}

TEST_F(sockets, are_readable_within_the_seconds_or_not) {
    answer_after(2, {1, 0, {.readable = true}});
    EXPECT_TRUE(socket_wait_readable(7, 3));
    answer_after(2, {0});
    EXPECT_FALSE(socket_wait_readable(7, 3));
    EXPECT_TRUE(script.selects.empty());
    answer_after(0, {-1, 5});
    EXPECT_FALSE(socket_wait_readable(7, 3));
}

TEST_F(sockets, are_asked_once_without_waiting_for_no_seconds) {
    script.selects = {{0}, {1, 0, {.readable = true}}};
    EXPECT_FALSE(socket_wait_readable(7, 0));
    EXPECT_TRUE(socket_wait_readable(7, -5));
    EXPECT_EQ(script.take_calls(), "select r 0, select r 0");
}

TEST_F(sockets, know_their_local_address) {
    uint32_t address = 0;
    uint16_t port = 0;
    EXPECT_TRUE(socket_local_address(7, &address, &port));
    EXPECT_EQ(address, 0x0100007FU);
    EXPECT_EQ(port, 3241);
    EXPECT_TRUE(socket_local_address(7, nullptr, nullptr));
    script.broken = "getsockname";
    address = 99;
    EXPECT_FALSE(socket_local_address(7, &address, &port));
    EXPECT_EQ(address, 99U);
}

TEST_F(sockets, know_the_name_of_the_host) {
    char name[64];
    EXPECT_TRUE(hostname_get(name, sizeof name));
    EXPECT_STREQ(name, "host.example");
    script.broken = "gethostname";
    EXPECT_FALSE(hostname_get(name, sizeof name));
}
