#include "platform/waits.h"

#include "fakes/test_host.h"
#include "platform/waits_linux.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <thread>

class linux_waits : public testing::Test {
protected:
    test_host host; // for its heap
    std::vector<waitable *> made;

    void SetUp() override { waits_host = &waits_ops_host; }
    void TearDown() override {
        for (waitable *event : made)
            waits_host->CloseHandle(event);
        EXPECT_EQ(host.blocks, 0);
    }

    waitable *event(bool manual, bool signalled) {
        made.push_back(waits_host->CreateEventA(manual, signalled));
        return made.back();
    }
    static int32_t wait(const std::vector<waitable *> &objects, uint32_t milliseconds) {
        return waits_host->WaitForMultipleObjects(static_cast<uint32_t>(objects.size()), objects.data(),
                                                  milliseconds);
    }
};

TEST_F(linux_waits, time_out_without_a_signal) {
    waitable *one = event(false, false);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    EXPECT_EQ(wait({one}, 2), WAIT_OBJECT_TIMEOUT);
}

TEST_F(linux_waits, take_the_signal_of_an_automatic_event) {
    waitable *one = event(false, true);
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    waits_host->SetEvent(one);
    waits_host->SetEvent(one); // counts once
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
}

TEST_F(linux_waits, leave_a_manual_event_signalled_until_its_reset) {
    waitable *one = event(true, true);
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), 0);
    waits_host->ResetEvent(one);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    waits_host->ResetEvent(one); // of one that is not signalled
    waits_host->SetEvent(one);
    EXPECT_EQ(wait({one}, 0), 0);
}

TEST_F(linux_waits, give_the_first_that_is_signalled_and_leave_the_others) {
    std::vector<waitable *> all = {event(false, false), event(false, true), event(false, true),
                                   event(true, true)};
    EXPECT_EQ(wait(all, 0), 1);
    EXPECT_EQ(wait(all, 0), 2);
    EXPECT_EQ(wait(all, 0), 3);
    EXPECT_EQ(wait(all, 0), 3);
}

TEST_F(linux_waits, end_at_a_signal_from_another_thread) {
    waitable *one = event(false, false);
    std::thread other([one] { waits_host->SetEvent(one); });
    EXPECT_EQ(wait({one}, 60000), 0);
    other.join();
}

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

TEST_F(linux_waits, carry_the_tables) {
    waitable *stop = event(false, false), *channel = event(false, false);
    add_wait_event(stop);
    add_wait_event(channel);
    waits_host->SetEvent(channel);
    EXPECT_EQ(wait_for_objects(0), 0);
    EXPECT_EQ(wait_for_objects(60), 2);
    waits_host->SetEvent(stop);
    EXPECT_EQ(wait_for_objects(60), 1);
}
