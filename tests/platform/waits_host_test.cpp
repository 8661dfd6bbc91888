#include "platform/waits_fixture.h"

#include <thread>

TEST_F(host_waits, time_out_without_a_signal) {
    waitable *one = event(false, false);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    EXPECT_EQ(wait({one}, 2), WAIT_OBJECT_TIMEOUT);
}

TEST_F(host_waits, take_the_signal_of_an_automatic_event) {
    waitable *one = event(false, true);
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    waits_host->SetEvent(one);
    waits_host->SetEvent(one); // counts once
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
}

TEST_F(host_waits, leave_a_manual_event_signalled_until_its_reset) {
    waitable *one = event(true, true);
    EXPECT_EQ(wait({one}, 0), 0);
    EXPECT_EQ(wait({one}, 0), 0);
    waits_host->ResetEvent(one);
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    waits_host->ResetEvent(one); // of one that is not signalled
    waits_host->SetEvent(one);
    EXPECT_EQ(wait({one}, 0), 0);
}

TEST_F(host_waits, give_the_first_that_is_signalled_and_leave_the_others) {
    std::vector<waitable *> all = {event(false, false), event(false, true), event(false, true),
                                   event(true, true)};
    EXPECT_EQ(wait(all, 0), 1);
    EXPECT_EQ(wait(all, 0), 2);
    EXPECT_EQ(wait(all, 0), 3);
    EXPECT_EQ(wait(all, 0), 3);
}

TEST_F(host_waits, end_at_a_signal_from_another_thread) {
    waitable *one = event(false, false);
    std::thread other([one] { waits_host->SetEvent(one); });
    EXPECT_EQ(wait({one}, 60000), 0);
    other.join();
}

TEST_F(host_waits, carry_the_tables) {
    waitable *stop = event(false, false), *channel = event(false, false);
    add_wait_event(stop);
    add_wait_event(channel);
    waits_host->SetEvent(channel);
    EXPECT_EQ(wait_for_objects(0), 0);
    EXPECT_EQ(wait_for_objects(60), 2);
    waits_host->SetEvent(stop);
    EXPECT_EQ(wait_for_objects(60), 1);
}
