#include "core/parent_pipes_ops.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/heap.h"
#include "platform/waits.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

class linux_parent_pipes : public testing::Test {
protected:
    test_host host;
    int to_agent[2];
    int to_launcher[2];

    void SetUp() override {
        waits_host = &waits_ops_host;
        signal(SIGPIPE, SIG_IGN);
        ASSERT_EQ(pipe(to_agent), 0);
        ASSERT_EQ(pipe(to_launcher), 0);
    }
    void TearDown() override {
        for (int file : {to_agent[0], to_agent[1], to_launcher[0], to_launcher[1]})
            close(file);
    }
    bool read(waitable *stop, int *out) const {
        uint8_t byte = 99;
        uint32_t count = 99;
        bool sound = parent_pipe_ops_host.ReadFile(to_agent[0], stop, &byte, &count);
        EXPECT_EQ(count, sound ? 1U : 0U);
        *out = byte;
        return sound;
    }
};

TEST_F(linux_parent_pipes, bring_one_byte_after_the_other_and_fail_at_the_end) {
    ASSERT_EQ(write(to_agent[1], "\x07\0", 2), 2);
    int byte;
    EXPECT_TRUE(read(nullptr, &byte));
    EXPECT_EQ(byte, 7);
    EXPECT_TRUE(read(nullptr, &byte));
    EXPECT_EQ(byte, 0);
    close(to_agent[1]);
    EXPECT_FALSE(read(nullptr, &byte));
    to_agent[1] = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST_F(linux_parent_pipes, end_a_wait_for_a_silent_launcher_when_told_to) {
    waitable *stop = waits_host->CreateEventA(true, false);
    int byte;
    ASSERT_EQ(write(to_agent[1], "x", 1), 1);
    EXPECT_TRUE(read(stop, &byte));
    waits_host->SetEvent(stop);
    EXPECT_FALSE(read(stop, &byte));
    waits_host->CloseHandle(stop);
}

TEST_F(linux_parent_pipes, fail_for_what_is_no_pipe) {
    uint8_t byte;
    uint32_t count;
    EXPECT_FALSE(parent_pipe_ops_host.ReadFile(9999, nullptr, &byte, &count));
    EXPECT_FALSE(parent_pipe_ops_host.WriteFile(9999, 1, &count));
    EXPECT_EQ(errno, EBADF);
}

TEST_F(linux_parent_pipes, carry_a_byte_to_the_launcher) {
    uint32_t count = 99;
    EXPECT_TRUE(parent_pipe_ops_host.WriteFile(to_launcher[1], 2, &count));
    EXPECT_EQ(count, 1U);
    char got = 0;
    EXPECT_EQ(::read(to_launcher[0], &got, 1), 1);
    EXPECT_EQ(got, 2);
}

TEST_F(linux_parent_pipes, fail_behind_a_launcher_that_has_gone) {
    close(to_launcher[0]);
    uint32_t count = 99;
    EXPECT_FALSE(parent_pipe_ops_host.WriteFile(to_launcher[1], 2, &count));
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(count, 0U);
    to_launcher[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST_F(linux_parent_pipes, write_nothing_to_the_process_own_input) {
    uint32_t count = 99;
    EXPECT_FALSE(parent_pipe_ops_host.WriteFile(0, 2, &count));
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(count, 0U);
}
