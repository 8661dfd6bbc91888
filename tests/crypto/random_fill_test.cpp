#include "crypto/random_fill.h"

#include "fakes/test_host.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(random_fill, takes_exactly_the_bytes_of_the_host) {
    test_host host;
    unsigned char buffer[4] = {9, 9, 9, 9};
    EXPECT_TRUE(random_fill(buffer, 3));
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(buffer[2], 2);
    EXPECT_EQ(buffer[3], 9);
}

TEST(random_fill, fails_where_the_host_has_no_bytes) {
    test_host host;
    host.random = [](void *, size_t) { return false; };
    char byte;
    EXPECT_FALSE(random_fill(&byte, 1));
}
