#include "platform/sockets.h"

#include "platform/sockets_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <sys/time.h>

// A signal may end the host's wait early; that is no failure.
TEST_F(host_sockets, go_on_waiting_behind_a_signal) {
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

TEST_F(host_sockets, are_not_inherited_by_programs) {
    connect();
    EXPECT_EQ(fcntl(static_cast<int>(agent), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}
