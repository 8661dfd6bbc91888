#include "platform/clock.h"

#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <set>
#include <string>

TEST(clock_ops_host, tells_seconds_since_1970) {
    int64_t before = time(nullptr);
    int64_t told = clock_ops_host.time();
    EXPECT_GE(told, before);
    EXPECT_LE(told, before + 60);
}

TEST(clock_ops_host, has_no_local_time_beyond_the_calendar) {
    tm local = {};
    EXPECT_FALSE(clock_ops_host.localtime(INT64_MAX, &local));
}

TEST(clock_ops_host, sleeps_as_long_as_it_is_told) {
    auto before = std::chrono::steady_clock::now();
    clock_ops_host.Sleep(2);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(2));
}

TEST(random_ops_host, gives_other_bytes_each_time) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; i++) {
        char bytes[16] = {};
        ASSERT_TRUE(random_ops_host.random_bytes(bytes, sizeof bytes));
        EXPECT_TRUE(seen.emplace(bytes, sizeof bytes).second);
    }
}

TEST(random_ops_host, fills_exactly_what_was_asked_for) {
    std::string bytes(100001, '\0');
    ASSERT_TRUE(random_ops_host.random_bytes(bytes.data(), 100000));
    EXPECT_EQ(bytes[100000], '\0');
    size_t zeros = 0;
    for (char byte : bytes)
        zeros += byte == '\0';
    EXPECT_LT(zeros, 600U); // some 390 of them by chance
    EXPECT_TRUE(random_ops_host.random_bytes(nullptr, 0));
}
