#include "platform/waits_linux.h"

#include "platform/waits_fixture.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/time.h>

using linux_waits = host_waits;

TEST_F(linux_waits, are_absent_where_the_host_has_no_more) {
    host.fail_allocation = 1;
    EXPECT_EQ(waits_host->CreateEventA(false, false), nullptr);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = {.rlim_cur = 0, .rlim_max = before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(waits_host->CreateEventA(false, false), nullptr);
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

static waitable *signalled_by_handler;
static void signal_event(int) {
    signal_descriptor(signalled_by_handler->file);
}

TEST_F(linux_waits, go_on_after_a_signal_that_is_not_theirs) {
    waitable *one = event(false, false);
    struct sigaction ignore = {}, before = {};
    ignore.sa_handler = [](int) {};
    sigaction(SIGALRM, &ignore, &before);
    itimerval soon = {.it_interval = {}, .it_value = {.tv_sec = 0, .tv_usec = 1000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    EXPECT_EQ(wait({one}, 5), WAIT_OBJECT_TIMEOUT);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(linux_waits, end_where_a_signal_handler_says_so) {
    signalled_by_handler = event(false, false);
    struct sigaction waking = {}, before = {};
    waking.sa_handler = signal_event;
    sigaction(SIGUSR1, &waking, &before);
    raise(SIGUSR1);
    EXPECT_EQ(wait({signalled_by_handler}, 60000), 0);
    sigaction(SIGUSR1, &before, nullptr);
}
