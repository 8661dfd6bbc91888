#include "core/parent_pipes_ops.h"

#include <gtest/gtest.h>
#include <windows.h>

// A pipe whose ends are numbers, as the launcher hands them over.
class windows_parent_pipes : public testing::Test {
protected:
    const parent_pipe_ops *ops = &parent_pipe_ops_host;
    HANDLE ends[2] = {};
    uint8_t byte = 99;
    uint32_t count = 99;

    void SetUp() override { ASSERT_TRUE(CreatePipe(&ends[0], &ends[1], nullptr, 0)); }
    void TearDown() override {
        CloseHandle(ends[0]);
        if (ends[1] != nullptr) CloseHandle(ends[1]);
    }
    static int32_t number_of(HANDLE end) { return static_cast<int32_t>(reinterpret_cast<intptr_t>(end)); }
};

TEST_F(windows_parent_pipes, carry_single_bytes) {
    EXPECT_TRUE(ops->WriteFile(number_of(ends[1]), 2, &count));
    EXPECT_EQ(count, 1U);
    EXPECT_TRUE(ops->ReadFile(number_of(ends[0]), nullptr, &byte, &count));
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(byte, 2);
}

TEST_F(windows_parent_pipes, fail_at_the_end) {
    CloseHandle(ends[1]);
    ends[1] = nullptr;
    EXPECT_FALSE(ops->ReadFile(number_of(ends[0]), nullptr, &byte, &count));
    EXPECT_EQ(count, 0U);
}

TEST_F(windows_parent_pipes, fail_without_a_launcher) {
    EXPECT_FALSE(ops->WriteFile(0, 1, &count));
    EXPECT_EQ(count, 0U);
}
