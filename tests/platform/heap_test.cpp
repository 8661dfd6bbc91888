#include "platform/heap.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

struct pair_of_numbers {
    int64_t first, second;
};

TEST(heap_ops_host, gives_cleared_blocks) {
    for (int round = 0; round < 3; round++) {
        auto *block = static_cast<unsigned char *>(heap_ops_host.allocate(4096));
        ASSERT_NE(block, nullptr);
        for (int i = 0; i < 4096; i++) {
            ASSERT_EQ(block[i], 0) << i;
            block[i] = 0xA5;
        }
        heap_ops_host.release(block);
    }
}

TEST(heap_ops_host, gives_a_block_for_no_bytes) {
    void *block = heap_ops_host.allocate(0);
    EXPECT_NE(block, nullptr);
    heap_ops_host.release(block);
}

TEST(heap_ops_host, is_absent_when_memory_is_out) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer ends the program instead";
#endif
    EXPECT_EQ(heap_ops_host.allocate(SIZE_MAX / 2), nullptr);
}

TEST(heap_free, takes_absent) {
    test_host host;
    heap_free(nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(heap_new, clears_the_record) {
    test_host host;
    auto *record = heap_new<pair_of_numbers>();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->first, 0);
    EXPECT_EQ(record->second, 0);
    heap_free(record);
    EXPECT_EQ(host.blocks, 0);
}

TEST(heap_new, is_absent_when_memory_is_out) {
    test_host host;
    host.fail_allocation = 1;
    EXPECT_EQ(heap_new<pair_of_numbers>(), nullptr);
}

TEST(guard, frees_its_record_unless_released) {
    test_host host;
    { guard<pair_of_numbers, heap_free> kept(heap_new<pair_of_numbers>()); }
    EXPECT_EQ(host.blocks, 0);
    pair_of_numbers *released;
    {
        guard<pair_of_numbers, heap_free> kept(heap_new<pair_of_numbers>());
        released = kept.release();
    }
    EXPECT_EQ(host.blocks, 1);
    heap_free(released);
}
