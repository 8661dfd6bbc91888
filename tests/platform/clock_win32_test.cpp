#include "platform/clock.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

TEST(clock_ops_host, knows_the_local_time) {
    _putenv_s("TZ", "EST5");
    _tzset();
    tm local = {};
    EXPECT_TRUE(clock_ops_host.localtime(741476948, &local));
    EXPECT_EQ(local.tm_hour, 16);
    EXPECT_EQ(local.tm_mday, 30);
    _putenv_s("TZ", "");
    _tzset();
}
