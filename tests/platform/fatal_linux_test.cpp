#include "platform/fatal.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(process_ops_host, knows_its_number) {
    EXPECT_EQ(process_ops_host.GetCurrentProcessId(), static_cast<uint32_t>(getpid()));
}
