#include "server/memory_pool.h"

#include <gtest/gtest.h>

TEST(memory_share, takes_up_to_its_own_limit) {
    memory_pool pool(1000);
    memory_share share(&pool, 100);
    EXPECT_TRUE(share.take(60));
    EXPECT_FALSE(share.take(41));
    EXPECT_TRUE(share.take(40));
    EXPECT_FALSE(share.take(1));
}

TEST(memory_share, is_refused_what_the_pool_has_not) {
    memory_pool pool(100);
    memory_share first(&pool, 100);
    memory_share second(&pool, 100);
    EXPECT_TRUE(first.take(70));
    EXPECT_FALSE(second.take(31));
    EXPECT_TRUE(second.take(30));
}

TEST(memory_share, gives_back_what_it_took) {
    memory_pool pool(100);
    {
        memory_share share(&pool, 100);
        EXPECT_TRUE(share.take(100));
        share.give_all();
        EXPECT_EQ(pool.in_use(), 0U);
        EXPECT_TRUE(share.take(100));
    }
    EXPECT_EQ(pool.in_use(), 0U);
}

TEST(memory_share, refuses_sizes_that_would_wrap) {
    memory_pool pool(100);
    memory_share share(&pool, 100);
    EXPECT_TRUE(share.take(1));
    EXPECT_FALSE(share.take(SIZE_MAX));
    EXPECT_FALSE(pool.take(SIZE_MAX));
    EXPECT_EQ(pool.in_use(), 1U);
}
