#include "platform/sockets.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/sockets_ops.h"
#include "platform/waits.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

static constexpr uint32_t OPTIONS = SOCKET_NONBLOCKING | SOCKET_STREAM;

// A listener on the loopback, and the agent's side of one connection to it.
class linux_sockets : public testing::Test {
protected:
    test_host host;
    int listener = -1;
    int peer = -1;
    uint16_t port = 0;
    uint32_t loopback = htonl(INADDR_LOOPBACK);
    socket_handle agent = -1;

    void SetUp() override {
        sockets_host = &sockets_ops_host;
        error_host = &error_ops_host;
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in own = {};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = loopback;
        socklen_t size = sizeof own;
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&own), size), 0);
        ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&own), &size), 0);
        port = ntohs(own.sin_port);
    }
    void TearDown() override {
        if (agent != -1) {
            EXPECT_SUCCESS(socket_close(agent));
        }
        for (int file : {listener, peer})
            if (file != -1) close(file);
    }

    void connect() {
        ASSERT_EQ(listen(listener, 5), 0);
        EXPECT_SUCCESS(socket_init());
        EXPECT_SUCCESS(socket_create(loopback, port, &agent, OPTIONS));
        peer = accept(listener, nullptr, nullptr);
        ASSERT_NE(peer, -1);
    }
};

TEST_F(linux_sockets, connect_and_talk) {
    connect();
    EXPECT_SUCCESS(socket_send(agent, "question", 8));
    char buffer[64];
    ASSERT_EQ(read(peer, buffer, sizeof buffer), 8);
    ASSERT_EQ(write(peer, "answer", 6), 6);
    EXPECT_TRUE(socket_wait_readable(agent, 60));
    size_t count = 0;
    EXPECT_SUCCESS(socket_recv(agent, buffer, sizeof buffer, &count));
    EXPECT_EQ(std::string(buffer, count), "answer");
}

TEST_F(linux_sockets, connect_with_blocking_too) {
    ASSERT_EQ(listen(listener, 5), 0);
    EXPECT_SUCCESS(socket_create(loopback, port, &agent, SOCKET_NODELAY));
}

TEST_F(linux_sockets, are_refused_where_nobody_listens) {
    EXPECT_FAILURE(socket_create(loopback, port, &agent, OPTIONS),
                   "Error connecting: Connection refused (111)");
    EXPECT_EQ(agent, -1);
    EXPECT_FAILURE(socket_create(loopback, port, &agent, 0), "Error connecting: Connection refused (111)");
}

TEST_F(linux_sockets, know_their_own_end) {
    connect();
    uint32_t address = 0;
    uint16_t own_port = 0;
    EXPECT_TRUE(socket_local_address(agent, &address, &own_port));
    EXPECT_EQ(address, loopback);
    sockaddr_in seen = {};
    socklen_t size = sizeof seen;
    ASSERT_EQ(getpeername(peer, reinterpret_cast<sockaddr *>(&seen), &size), 0);
    EXPECT_EQ(own_port, ntohs(seen.sin_port));
}

TEST_F(linux_sockets, receive_nothing_from_a_peer_that_closes) {
    connect();
    close(peer);
    peer = -1;
    char buffer[8];
    size_t count = 99;
    EXPECT_SUCCESS(socket_recv(agent, buffer, sizeof buffer, &count));
    EXPECT_EQ(count, 0U);
}

TEST_F(linux_sockets, time_out_with_a_silent_peer) {
    connect();
    socket_set_timeout(1);
    EXPECT_FALSE(socket_wait_readable(agent, 0));
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
}

// A signal may end the host's wait early; that is no failure.
TEST_F(linux_sockets, go_on_waiting_behind_a_signal) {
    connect();
    socket_set_timeout(2);
    struct sigaction ignore = {}, before = {};
    ignore.sa_handler = [](int) {};
    sigaction(SIGALRM, &ignore, &before);
    itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 1000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(linux_sockets, are_not_inherited_by_programs) {
    connect();
    EXPECT_EQ(fcntl(static_cast<int>(agent), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(linux_sockets, time_out_with_a_peer_that_takes_nothing) {
    connect();
    socket_set_timeout(1);
    std::string plenty(32U << 20, 'x');
    EXPECT_FAILURE(socket_send(agent, plenty.data(), plenty.size()), "Timeout in socket_send()");
}

TEST_F(linux_sockets, end_their_waits_soon_after_a_stop) {
    connect();
    terminate_flag = 1;
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count), "Timeout in socket_recv()");
}

TEST_F(linux_sockets, send_more_than_fits_at_once) {
    connect();
    std::string plenty(8U << 20, 'x');
    size_t taken = 0;
    std::thread reader([this, &taken, &plenty] {
        char buffer[65536];
        ssize_t got;
        while (taken < plenty.size() && (got = read(peer, buffer, sizeof buffer)) > 0)
            taken += static_cast<size_t>(got);
    });
    EXPECT_SUCCESS(socket_send(agent, plenty.data(), plenty.size()));
    reader.join();
    EXPECT_EQ(taken, plenty.size());
}

TEST_F(linux_sockets, fail_to_send_to_a_peer_that_is_gone) {
    connect();
    linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(peer, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(peer);
    peer = -1;
    EXPECT_TRUE(socket_wait_readable(agent, 60)); // the reset is here
    char buffer[8];
    size_t count;
    EXPECT_FAILURE(socket_recv(agent, buffer, sizeof buffer, &count),
                   "Bad error happened without sleep in socket_recv(): Connection reset by peer (104)");
    EXPECT_FAILURE(socket_send(agent, "x", 1),
                   "Bad error without sleep happened in socket_send(): Broken pipe (32)");
}

TEST_F(linux_sockets, tell_that_a_closed_one_is_closed) {
    connect();
    EXPECT_SUCCESS(socket_close(agent));
    EXPECT_FAILURE(socket_close(agent), "socket_close: Error at ioctlsocket: Bad file descriptor (9)");
    agent = -1;
}

TEST_F(linux_sockets, resolve_addresses_and_local_names) {
    uint32_t address = 0;
    EXPECT_SUCCESS(socket_resolve("10.1.2.3", &address));
    EXPECT_EQ(address, htonl(0x0A010203));
    EXPECT_SUCCESS(socket_resolve("localhost", &address));
    EXPECT_EQ(address, loopback);
}

TEST_F(linux_sockets, tell_why_a_name_is_not_resolved) {
    uint32_t address = 0;
    // All digits and points: the name service is not asked.
    EXPECT_FAILURE(socket_resolve("1.2.3.4.5", &address), "Error resolving \"1.2.3.4.5\": Unknown host");
}

TEST_F(linux_sockets, know_the_name_of_the_host) {
    char name[256], expected[256];
    ASSERT_EQ(gethostname(expected, sizeof expected), 0);
    EXPECT_TRUE(hostname_get(name, sizeof name));
    EXPECT_STREQ(name, expected);
    EXPECT_FALSE(hostname_get(name, 1));
}
