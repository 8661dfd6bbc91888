#include "probes/os/memory_ops.h"

#include <gtest/gtest.h>

TEST(memory_ops_host, looks_its_function_up) {
    EXPECT_FALSE(memory_ops_host.GetModuleHandleA("no such module.dll"));
    ASSERT_TRUE(memory_ops_host.GetModuleHandleA("kernel32.dll"));
    EXPECT_FALSE(memory_ops_host.GetProcAddress("NoSuchFunction"));
    EXPECT_TRUE(memory_ops_host.GetProcAddress("GlobalMemoryStatusEx"));
}

TEST(memory_ops_host, refuses_a_record_of_another_length) {
    ASSERT_TRUE(memory_ops_host.GetModuleHandleA("kernel32.dll"));
    ASSERT_TRUE(memory_ops_host.GetProcAddress("GlobalMemoryStatusEx"));
    memory_status status = {.length = 63};
    EXPECT_FALSE(memory_ops_host.GlobalMemoryStatusEx(&status));
    status.length = 64;
    EXPECT_TRUE(memory_ops_host.GlobalMemoryStatusEx(&status));
    EXPECT_EQ(status.length, 64U);
    EXPECT_GT(status.total_virtual, status.available_virtual);
}

TEST(memory_ops_host, fills_the_short_record_with_its_own_length) {
    memory_status status = {.length = 32};
    memory_ops_host.GlobalMemoryStatus(&status);
    EXPECT_EQ(status.length, 56U);
    EXPECT_GT(status.total_phys, 0U);
    EXPECT_LE(status.available_phys, status.total_phys);
    EXPECT_GT(status.total_virtual, 0U);
}
