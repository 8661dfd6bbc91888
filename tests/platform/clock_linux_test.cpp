#include "platform/clock.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

TEST(clock_ops_host, knows_the_local_time) {
    setenv("TZ", "EST5", 1);
    tzset();
    tm local = {};
    EXPECT_TRUE(clock_ops_host.localtime(741476948, &local));
    EXPECT_EQ(local.tm_hour, 16);
    EXPECT_EQ(local.tm_mday, 30);
    unsetenv("TZ");
    tzset();
}
