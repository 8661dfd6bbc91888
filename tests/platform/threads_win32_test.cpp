#include "platform/threads.h"

#include "platform/waits_fixture.h"

#include <atomic>
#include <windows.h>

class windows_threads : public host_waits {
protected:
    static uint32_t count_up(void *argument) {
        ++*static_cast<std::atomic<int> *>(argument);
        return 7;
    }
    static uint32_t wait_for_word(void *argument) {
        WaitForSingleObject(argument, INFINITE);
        return 0;
    }
    const threads_ops *ops = &threads_ops_host;
    std::atomic<int> runs = 0;

    waitable *thread(uint32_t (*body)(void *), void *argument) {
        made.push_back(ops->CreateThread(body, argument));
        return made.back();
    }
};

TEST_F(windows_threads, wait_until_they_are_resumed) {
    waitable *one = thread(count_up, &runs);
    ASSERT_NE(one, nullptr);
    uint32_t code = 0;
    EXPECT_TRUE(ops->GetExitCodeThread(one, &code));
    EXPECT_EQ(code, 259U); // still active
    EXPECT_EQ(wait({one}, 0), WAIT_OBJECT_TIMEOUT);
    EXPECT_EQ(runs, 0);
    EXPECT_TRUE(ops->ResumeThread(one));
    ops->WaitForSingleObject(one);
    EXPECT_EQ(runs, 1);
}

TEST_F(windows_threads, are_signalled_at_their_end_and_leave_a_code) {
    waitable *one = thread(count_up, &runs);
    EXPECT_TRUE(ops->ResumeThread(one));
    EXPECT_EQ(wait({event(false, false), one}, 60000), 1);
    uint32_t code = 0;
    EXPECT_TRUE(ops->GetExitCodeThread(one, &code));
    EXPECT_EQ(code, 7U);
}

TEST_F(windows_threads, take_the_lowest_priority) {
    HANDLE word = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    waitable *one = thread(wait_for_word, word);
    EXPECT_TRUE(ops->SetThreadPriority(one, -15));
    EXPECT_EQ(GetThreadPriority(reinterpret_cast<HANDLE>(one)), THREAD_PRIORITY_IDLE);
    EXPECT_TRUE(ops->ResumeThread(one));
    SetEvent(word);
    ops->WaitForSingleObject(one);
    CloseHandle(word);
}

TEST_F(windows_threads, need_memory) {
    host.fail_allocation = 1;
    EXPECT_EQ(ops->CreateThread(count_up, &runs), nullptr);
}

TEST_F(windows_threads, have_no_answer_for_what_is_none) {
    uint32_t code = 0;
    auto *none = reinterpret_cast<waitable *>(intptr_t{0x7FFFFFF0});
    EXPECT_FALSE(ops->GetExitCodeThread(none, &code));
    EXPECT_FALSE(ops->ResumeThread(none));
    EXPECT_FALSE(ops->SetThreadPriority(none, -15));
}
