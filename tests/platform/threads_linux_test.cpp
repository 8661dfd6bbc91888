#include "platform/threads.h"

#include "fakes/test_host.h"
#include "platform/heap.h"
#include "platform/waits.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

static std::atomic<int> runs;
static waitable *gate;

static uint32_t count_run(void *argument) {
    runs++;
    return *static_cast<uint32_t *>(argument);
}

// Ends when the gate is opened.
static uint32_t wait_at_gate(void *) {
    waits_host->WaitForMultipleObjects(1, &gate, 60000);
    return 7;
}

class linux_threads : public testing::Test {
protected:
    test_host host;

    void SetUp() override {
        heap_host = &heap_ops_host; // that of the test host is not for threads
        waits_host = &waits_ops_host;
        threads_host = &threads_ops_host;
        gate = waits_host->CreateEventA(true, false);
        runs = 0;
    }
    void TearDown() override { waits_host->CloseHandle(gate); }

    static uint32_t exit_code(waitable *thread) {
        uint32_t code = 0;
        EXPECT_TRUE(threads_host->GetExitCodeThread(thread, &code));
        return code;
    }
};

TEST_F(linux_threads, begin_when_they_are_resumed_and_leave_their_exit_code) {
    uint32_t code = 42;
    waitable *thread = threads_host->CreateThread(count_run, &code);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(exit_code(thread), STILL_ACTIVE);
    EXPECT_EQ(waits_host->WaitForMultipleObjects(1, &thread, 20), WAIT_OBJECT_TIMEOUT);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(threads_host->ResumeThread(thread));
    threads_host->WaitForSingleObject(thread);
    EXPECT_EQ(exit_code(thread), 42U);
    EXPECT_EQ(runs, 1);
    waits_host->CloseHandle(thread);
}

TEST_F(linux_threads, end_a_sleep_and_stay_signalled) {
    waitable *thread = threads_host->CreateThread(wait_at_gate, nullptr);
    threads_host->ResumeThread(thread);
    EXPECT_EQ(waits_host->WaitForMultipleObjects(1, &thread, 0), WAIT_OBJECT_TIMEOUT);
    EXPECT_EQ(exit_code(thread), STILL_ACTIVE);
    waits_host->SetEvent(gate);
    EXPECT_EQ(waits_host->WaitForMultipleObjects(1, &thread, 60000), 0);
    EXPECT_EQ(waits_host->WaitForMultipleObjects(1, &thread, 0), 0);
    EXPECT_EQ(exit_code(thread), 7U);
    waits_host->CloseHandle(thread);
}

TEST_F(linux_threads, never_run_when_they_are_closed_before) {
    uint32_t code = 42;
    waits_host->CloseHandle(threads_host->CreateThread(count_run, &code));
    EXPECT_EQ(runs, 0);
}

TEST_F(linux_threads, can_be_given_the_lowest_priority) {
    static std::atomic<int> policy;
    policy = -1;
    waitable *thread = threads_host->CreateThread(
        [](void *) {
            sched_param parameters;
            int own;
            pthread_getschedparam(pthread_self(), &own, &parameters);
            policy = own;
            return uint32_t{0};
        },
        nullptr);
    EXPECT_TRUE(threads_host->SetThreadPriority(thread, THREAD_PRIORITY_IDLE));
    threads_host->ResumeThread(thread);
    threads_host->WaitForSingleObject(thread);
    EXPECT_EQ(policy, SCHED_IDLE);
    waits_host->CloseHandle(thread);
}

TEST_F(linux_threads, leave_the_signals_to_the_main_one) {
    static std::atomic<int> blocked;
    blocked = 0;
    waitable *thread = threads_host->CreateThread(
        [](void *) {
            sigset_t own;
            pthread_sigmask(SIG_BLOCK, nullptr, &own);
            blocked = sigismember(&own, SIGTERM) + sigismember(&own, SIGUSR1);
            return uint32_t{0};
        },
        nullptr);
    threads_host->ResumeThread(thread);
    threads_host->WaitForSingleObject(thread);
    EXPECT_EQ(blocked, 2);
    sigset_t here;
    pthread_sigmask(SIG_BLOCK, nullptr, &here);
    EXPECT_EQ(sigismember(&here, SIGTERM), 0);
    waits_host->CloseHandle(thread);
}

TEST_F(linux_threads, are_absent_where_the_host_has_no_more) {
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = {.rlim_cur = 0, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    waitable *thread = threads_host->CreateThread(wait_at_gate, nullptr);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(thread, nullptr);
}

TEST_F(linux_threads, are_absent_when_memory_is_out) {
    test_host refusing; // its heap does
    waits_host = &waits_ops_host;
    for (uint32_t block = 1; block <= 2; block++) {
        refusing.fail_allocation = block;
        EXPECT_EQ(threads_ops_host.CreateThread(wait_at_gate, nullptr), nullptr);
    }
    EXPECT_EQ(refusing.blocks, 0);
    heap_host = &heap_ops_host;
}
