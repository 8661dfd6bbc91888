#include "platform/sockets.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/loopback_peer.h"
#include "platform/sockets_ops.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>

// The agent's side of one connection over the loopback.
class linux_sockets : public testing::Test {
protected:
    test_host host;
    loopback_peer peer;
    socket_handle agent = -1;

    void SetUp() override {
        sockets_host = &sockets_ops_host;
        error_host = &error_ops_host;
        EXPECT_SUCCESS(socket_init());
        ASSERT_TRUE(peer.bind());
        ASSERT_TRUE(peer.listen());
        EXPECT_SUCCESS(socket_create(LOOPBACK, peer.port, &agent, SOCKET_NONBLOCKING | SOCKET_STREAM));
        ASSERT_TRUE(peer.accept());
    }
    void TearDown() override { EXPECT_SUCCESS(socket_close(agent)); }
};

// A signal may end the host's wait early; that is no failure.
TEST_F(linux_sockets, go_on_waiting_behind_a_signal) {
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
    EXPECT_EQ(fcntl(static_cast<int>(agent), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}
