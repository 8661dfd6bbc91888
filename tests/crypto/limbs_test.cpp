#include "crypto/limbs.h"

#include "crypto/numbers.h"

using wide = unsigned __int128;
using limb_vector = std::vector<uint32_t>;

static wide wide_of(const limb_vector &limbs) {
    wide value = 0;
    for (size_t i = limbs.size(); i-- > 0;)
        value = value << 32 | limbs[i];
    return value;
}

static limb_vector random_limbs(std::mt19937 &random, size_t count) {
    static const uint32_t favourites[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    limb_vector limbs(count);
    for (uint32_t &limb : limbs)
        limb = random() % 3 == 0 ? favourites[random() % 5] : static_cast<uint32_t>(random());
    return limbs;
}

TEST(limb_mul_add, holds_the_largest_sum) {
    uint32_t target = 0xFFFFFFFF;
    EXPECT_EQ(limb_mul_add(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, &target), 0xFFFFFFFF);
    EXPECT_EQ(target, 0xFFFFFFFF);
}

TEST(limb_mul_add, adds_carry_and_target_to_the_product) {
    uint32_t target = 5;
    EXPECT_EQ(limb_mul_add(0x10000, 0x10001, 7, &target), 1U);
    EXPECT_EQ(target, 0x10000U + 12U);
}

TEST(limbs_less, looks_at_the_top_first) {
    limb_vector a = {9, 1}, b = {0, 2};
    EXPECT_TRUE(limbs_less(a.data(), b.data(), 2));
    EXPECT_FALSE(limbs_less(b.data(), a.data(), 2));
}

TEST(limbs_less, is_false_for_equal_ones) {
    limb_vector a = {9, 1};
    EXPECT_FALSE(limbs_less(a.data(), a.data(), 2));
    EXPECT_FALSE(limbs_less(a.data(), a.data(), 0));
}

TEST(limbs_shift_left_one, drops_the_bit_that_passes_the_top) {
    limb_vector limbs = {0x80000001, 0x80000000, 77};
    limbs_shift_left_one(limbs.data(), 2);
    EXPECT_EQ(limbs, (limb_vector{2, 1, 77}));
}

TEST(limbs_shift_left, moves_whole_limbs_and_the_rest) {
    limb_vector limbs = {0x12345678, 0, 0, 77};
    limbs_shift_left(limbs.data(), 3, 36);
    EXPECT_EQ(limbs, (limb_vector{0, 0x23456780, 1, 77}));
}

TEST(limbs_shift_left, leaves_nothing_of_a_shift_by_all_bits) {
    limb_vector limbs = {1, 2};
    limbs_shift_left(limbs.data(), 2, 64);
    EXPECT_EQ(limbs, (limb_vector{0, 0}));
}

TEST(limbs_shift_right, moves_whole_limbs_and_the_rest) {
    limb_vector limbs = {9, 0x12345678, 0xF, 77};
    limbs_shift_right(limbs.data(), 3, 36);
    EXPECT_EQ(limbs, (limb_vector{0xF1234567, 0, 0, 77}));
}

TEST(limbs_shift_right, leaves_nothing_of_a_shift_by_all_bits) {
    limb_vector limbs = {1, 2};
    limbs_shift_right(limbs.data(), 2, 64);
    EXPECT_EQ(limbs, (limb_vector{0, 0}));
    limbs = {1, 2};
    limbs_shift_right(limbs.data(), 2, UINT64_MAX);
    EXPECT_EQ(limbs, (limb_vector{0, 0}));
}

TEST(limbs_shift_left, agrees_with_wide_integers) {
    std::mt19937 random(1);
    for (int i = 0; i < 3000; i++) {
        limb_vector limbs = random_limbs(random, 4);
        unsigned bits = static_cast<unsigned>(random() % 128);
        wide expected = wide_of(limbs) << bits;
        limbs_shift_left(limbs.data(), 4, bits);
        ASSERT_TRUE(wide_of(limbs) == expected) << bits;
    }
}

TEST(limbs_shift_right, agrees_with_wide_integers) {
    std::mt19937 random(2);
    for (int i = 0; i < 3000; i++) {
        limb_vector limbs = random_limbs(random, 4);
        unsigned bits = static_cast<unsigned>(random() % 128);
        wide expected = wide_of(limbs) >> bits;
        limbs_shift_right(limbs.data(), 4, bits);
        ASSERT_TRUE(wide_of(limbs) == expected) << bits;
    }
}

TEST(limbs_sub, carries_the_borrow_through_the_rest) {
    limb_vector a = {0, 0, 5, 77}, b = {1};
    EXPECT_EQ(limbs_sub(a.data(), 3, b.data(), 1), 0U);
    EXPECT_EQ(a, (limb_vector{0xFFFFFFFF, 0xFFFFFFFF, 4, 77}));
}

TEST(limbs_sub, returns_the_final_borrow) {
    limb_vector a = {1, 0}, b = {2};
    EXPECT_EQ(limbs_sub(a.data(), 2, b.data(), 1), 1U);
    EXPECT_EQ(a, (limb_vector{0xFFFFFFFF, 0xFFFFFFFF}));
}

TEST(limbs_sub, agrees_with_wide_integers) {
    std::mt19937 random(3);
    for (int i = 0; i < 3000; i++) {
        limb_vector a = random_limbs(random, 4), b = random_limbs(random, 1 + random() % 4);
        wide expected = wide_of(a) - wide_of(b);
        uint32_t borrow = wide_of(a) < wide_of(b);
        ASSERT_EQ(limbs_sub(a.data(), 4, b.data(), b.size()), borrow);
        ASSERT_TRUE(wide_of(a) == expected);
    }
}

TEST(limbs_mul, clears_the_target_and_writes_no_further) {
    limb_vector a = {2}, b = {3, 0}, out = {9, 9, 9, 9};
    limbs_mul(out.data(), a.data(), 1, b.data(), 2);
    EXPECT_EQ(out, (limb_vector{6, 0, 0, 9}));
}

TEST(limbs_mul, agrees_with_wide_integers) {
    std::mt19937 random(4);
    for (int i = 0; i < 3000; i++) {
        limb_vector a = random_limbs(random, 1 + random() % 3), b = random_limbs(random, 4 - a.size());
        limb_vector out(4, 9);
        limbs_mul(out.data(), a.data(), a.size(), b.data(), b.size());
        ASSERT_TRUE(wide_of(out) == wide_of(a) * wide_of(b));
    }
}

TEST(limbs_div_small, agrees_with_wide_integers) {
    std::mt19937 random(5);
    for (int i = 0; i < 3000; i++) {
        limb_vector a = random_limbs(random, 4);
        uint32_t divisor = std::max(random_limbs(random, 1)[0], 1U);
        wide value = wide_of(a);
        ASSERT_EQ(limbs_div_small(a.data(), 4, divisor), static_cast<uint32_t>(value % divisor));
        ASSERT_TRUE(wide_of(a) == value / divisor);
    }
}

TEST(limbs_top_bit, passes_over_zero_limbs) {
    limb_vector limbs = {0, 0x10, 0, 0};
    EXPECT_EQ(limbs_top_bit(limbs.data(), 4), 36U);
    EXPECT_EQ(limbs_top_bit(limbs.data(), 1), 0U);
    EXPECT_EQ(limbs_top_bit(limbs.data(), 0), 0U);
}

TEST(limbs_mod, agrees_with_wide_integers) {
    std::mt19937 random(6);
    for (int i = 0; i < 20000; i++) {
        limb_vector a = random_limbs(random, 1 + random() % 4), d = random_limbs(random, 1 + random() % 4);
        if (d.back() == 0) d.back() = 1;
        wide expected = wide_of(a) % wide_of(d);
        limbs_mod(a.data(), a.size(), d.data(), d.size());
        ASSERT_TRUE(wide_of(a) == expected);
    }
}

TEST(limbs_mod, writes_nothing_beyond_the_counts) {
    limb_vector a = {1, 2, 3, 77}, d = {0xFFFFFFFF, 1, 78};
    limbs_mod(a.data(), 3, d.data(), 2);
    EXPECT_EQ(a[2], 0U);
    EXPECT_EQ(a[3], 77U);
    EXPECT_EQ(d[2], 78U);
}
