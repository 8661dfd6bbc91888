#include "platform/fatal.h"

#include <gtest/gtest.h>
#include <process.h>
#include <string>

TEST(process_ops_host, knows_its_number) {
    EXPECT_EQ(process_ops_host.GetCurrentProcessId(), static_cast<uint32_t>(_getpid()));
}

TEST(process_ops_host, knows_its_program) {
    char path[1024];
    EXPECT_TRUE(process_ops_host.GetModuleFileNameA(path, sizeof path));
    EXPECT_TRUE(std::string(path).ends_with("\\platform_tests.exe")) << path;
    EXPECT_STREQ(process_ops_host.program_suffix, ".exe");
}

TEST(process_ops_host, cuts_the_path_at_the_buffer) {
    char path[] = "########";
    EXPECT_TRUE(process_ops_host.GetModuleFileNameA(path, 4));
    EXPECT_EQ(path[3], '\0');
    EXPECT_EQ(path[4], '#');
}
