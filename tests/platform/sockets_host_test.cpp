#include "platform/sockets.h"

#include "platform/errors.h"
#include "platform/sockets_fixture.h"
#include "platform/waits.h"

#include <gtest/gtest.h>
#include <thread>

static const socket_words words = host_socket_words();

TEST_F(host_sockets, connect_and_talk) {
    connect();
    EXPECT_SUCCESS(socket_send(agent, "question", 8));
    char buffer[64];
    ASSERT_EQ(peer.read(buffer, sizeof buffer), 8);
    ASSERT_EQ(peer.write("answer", 6), 6);
    EXPECT_TRUE(socket_wait_readable(agent, 60));
    size_t count = 0;
    EXPECT_SUCCESS(socket_recv(agent, buffer, sizeof buffer, &count));
    EXPECT_EQ(std::string(buffer, count), "answer");
}

TEST_F(host_sockets, connect_with_blocking_too) {
    ASSERT_TRUE(peer.listen());
    EXPECT_SUCCESS(socket_create(LOOPBACK, peer.port, &agent, SOCKET_NODELAY));
}

TEST_F(host_sockets, are_refused_where_nobody_listens) {
    EXPECT_FAILURE(socket_create(LOOPBACK, peer.port, &agent, OPTIONS), "Error connecting: " + words.refused);
    EXPECT_EQ(agent, -1);
    EXPECT_FAILURE(socket_create(LOOPBACK, peer.port, &agent, 0), "Error connecting: " + words.refused);
}

TEST_F(host_sockets, know_their_own_end) {
    connect();
    uint32_t address = 0;
    uint16_t own_port = 0;
    EXPECT_TRUE(socket_local_address(agent, &address, &own_port));
    EXPECT_EQ(address, LOOPBACK);
    EXPECT_EQ(own_port, peer.far_port());
}

TEST_F(host_sockets, receive_nothing_from_a_peer_that_closes) {
    connect();
    peer.close();
    char buffer[8];
    size_t count = 99;
    EXPECT_SUCCESS(socket_recv(agent, buffer, sizeof buffer, &count));
    EXPECT_EQ(count, 0U);
}

TEST_F(host_sockets, time_out_with_a_silent_peer) {
    connect();
    socket_set_timeout(1);
    EXPECT_FALSE(socket_wait_readable(agent, 0));
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
}

TEST_F(host_sockets, time_out_with_a_peer_that_takes_nothing) {
    connect();
    socket_set_timeout(1);
    std::string plenty(32U << 20, 'x');
    EXPECT_FAILURE(socket_send(agent, plenty.data(), plenty.size()), "Timeout in socket_send()");
}

TEST_F(host_sockets, end_their_waits_soon_after_a_stop) {
    connect();
    terminate_flag = 1;
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
}

TEST_F(host_sockets, send_more_than_fits_at_once) {
    connect();
    std::string plenty(8U << 20, 'x');
    size_t taken = 0;
    std::thread reader([this, &taken, &plenty] {
        char buffer[65536];
        int64_t got;
        while (taken < plenty.size() && (got = peer.read(buffer, sizeof buffer)) > 0)
            taken += static_cast<size_t>(got);
    });
    EXPECT_SUCCESS(socket_send(agent, plenty.data(), plenty.size()));
    reader.join();
    EXPECT_EQ(taken, plenty.size());
}

TEST_F(host_sockets, fail_to_send_to_a_peer_that_is_gone) {
    connect();
    peer.reset();
    EXPECT_TRUE(socket_wait_readable(agent, 60)); // the reset is here
    char buffer[8];
    size_t count = 99;
    std::string failure = noted_failure(socket_recv(agent, buffer, sizeof buffer, &count));
    if (!words.reset_may_look_closed || failure != "(none)")
        EXPECT_EQ(failure, "Bad error happened without sleep in socket_recv(): " + words.reset);
    else
        EXPECT_EQ(count, 0U);
    EXPECT_FAILURE(socket_send(agent, "x", 1),
                   "Bad error without sleep happened in socket_send(): " + words.gone);
}

TEST_F(host_sockets, tell_that_a_closed_one_is_closed) {
    connect();
    EXPECT_SUCCESS(socket_close(agent));
    EXPECT_FAILURE(socket_close(agent), "socket_close: Error at ioctlsocket: " + words.closed);
    agent = -1;
}

TEST_F(host_sockets, resolve_addresses_and_local_names) {
    uint32_t address = 0;
    EXPECT_SUCCESS(socket_resolve("10.1.2.3", &address));
    EXPECT_EQ(address, 0x0302010AU); // in network byte order
    EXPECT_SUCCESS(socket_resolve("localhost", &address));
    EXPECT_EQ(address, LOOPBACK);
}

TEST_F(host_sockets, tell_why_a_name_is_not_resolved) {
    uint32_t address = 0;
    // All digits and points: the name service is not asked.
    EXPECT_FAILURE(socket_resolve("1.2.3.4.5", &address),
                   "Error resolving \"1.2.3.4.5\": " + words.unknown_host);
}

TEST_F(host_sockets, know_the_name_of_the_host) {
    char name[256];
    EXPECT_TRUE(hostname_get(name, sizeof name));
    EXPECT_EQ(name, own_host_name());
    EXPECT_FALSE(hostname_get(name, 1));
}
