#include "core/parent_pipes.h"

#include "core/neighbours.h"
#include "core/start_fixture.h"

struct launcher : start_fixture {
    launcher() {
        set_parent_pipes(5, 6);
        signal_ev = waits_host->CreateEventA(false, false);
    }
    ~launcher() override {
        end_watching_parent();
        waits_host->CloseHandle(signal_ev);
        EXPECT_EQ(beside.open_handles, 0);
        parent_pipes_reset();
        os_arch_reset();
    }
};

TEST_F(launcher, stops_the_agent_with_the_byte_0) {
    beside.orders = {0};
    start_watching_parent(nullptr);
    EXPECT_EQ(terminate_flag, 1);
    EXPECT_TRUE(beside.is_set(signal_ev));
}

TEST_F(launcher, stops_the_agent_by_the_end_of_its_pipe) {
    start_watching_parent(nullptr);
    EXPECT_EQ(terminate_flag, 1);
    EXPECT_TRUE(beside.is_set(signal_ev));
}

TEST_F(launcher, is_not_heeded_with_any_other_byte) {
    beside.threads_held = true;
    beside.orders = {1, 2, 255, -1, 48, 7};
    start_watching_parent(nullptr);
    EXPECT_EQ(terminate_flag, 0);
    beside.orders.push_back(0);
    beside.run_held();
    EXPECT_TRUE(beside.orders.empty());
    EXPECT_EQ(terminate_flag, 1);
}

TEST_F(launcher, crosses_its_stop_with_the_agents_own_exit_without_making_it_a_stop) {
    upgrade_pending = 1;
    beside.orders = {0};
    start_watching_parent(nullptr);
    EXPECT_EQ(terminate_flag, 0);
    EXPECT_TRUE(beside.is_set(signal_ev));
}

TEST_F(launcher, that_dies_behind_an_upgrade_makes_the_exit_a_stop) {
    upgrade_pending = 1;
    start_watching_parent(nullptr);
    EXPECT_EQ(terminate_flag, 1);
}

TEST_F(launcher, that_there_is_none_stops_nothing) {
    set_parent_pipes(0, 0);
    start_watching_parent(nullptr);
    end_watching_parent();
    EXPECT_EQ(terminate_flag, 0);
    EXPECT_FALSE(beside.is_set(signal_ev));
}

TEST_F(launcher, that_is_silent_is_not_waited_for_behind_a_signal) {
    beside.threads_held = true;
    waitable *stop = waits_host->CreateEventA(true, false);
    start_watching_parent(stop);
    beside.orders = {7};
    waits_host->SetEvent(stop);
    end_watching_parent();
    EXPECT_EQ(beside.orders.size(), 1U);
    waits_host->CloseHandle(stop);
}

TEST_F(launcher, cannot_be_watched_without_a_thread_and_the_log_says_so) {
    beside.thread_refused = true;
    start_watching_parent(nullptr);
    EXPECT_EQ(host.count_logged("Error starting the thread that watches the launcher: "), 1);
    beside.thread_refused = false;
    beside.resume_refused = true;
    start_watching_parent(nullptr);
    EXPECT_EQ(host.count_logged("Error starting the thread that watches the launcher: "), 2);
}

TEST_F(launcher, hears_once_that_the_program_works) {
    report_alive();
    report_alive();
    EXPECT_EQ(beside.reports, "\x02");
}

TEST_F(launcher, hears_again_behind_a_write_that_failed) {
    beside.report_code = 5;
    report_alive();
    EXPECT_TRUE(host.logged(LOG_ERROR, "WriteFile failed: system error 5"));
    beside.report_code = 0;
    report_alive();
    report_alive();
    EXPECT_EQ(beside.reports, "\x02");
}

TEST_F(launcher, that_there_is_none_is_told_nothing) {
    set_parent_pipes(0, 0);
    report_alive();
    EXPECT_EQ(host.count_logged("WriteFile"), 0);
}

TEST_F(launcher, hears_of_an_upgrade) {
    report_upgrade();
    EXPECT_EQ(beside.reports, "\x01");
    EXPECT_EQ(host.count_logged("WriteFile"), 0);
}

TEST_F(launcher, that_takes_no_byte_is_told_in_the_log) {
    beside.report_lost = true;
    report_upgrade();
    EXPECT_TRUE(host.logged(LOG_ERROR, "WriteFile returned 0"));
    EXPECT_EQ(host.count_logged("WriteFile failed"), 0);
}

TEST_F(launcher, that_there_is_none_fails_the_report_of_an_upgrade_in_two_lines) {
    set_parent_pipes(0, 0);
    report_upgrade();
    EXPECT_TRUE(host.logged(LOG_ERROR, "WriteFile failed: system error 6"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "WriteFile returned 0"));
}
