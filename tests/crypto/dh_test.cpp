#include "crypto/dh.h"

#include "crypto/kept_stderr.h"
#include "crypto/numbers.h"
#include "fakes/test_host.h"

// What the fill function was asked for, and what it hands out: a value for each call, the last one again and
// again.
static std::vector<size_t> asked;
static std::vector<uint32_t> handed;

static bool scripted_fill(void *buffer, size_t count) {
    uint32_t value = handed[std::min(asked.size(), handed.size() - 1)];
    asked.push_back(count);
    memset(buffer, 0, count);
    memcpy(buffer, &value, std::min(count, sizeof value));
    return true;
}

static bool fill_with_ones(void *buffer, size_t count) {
    asked.push_back(count);
    memset(buffer, 0xFF, count);
    return true;
}

static bool failing_fill(void *, size_t count) {
    asked.push_back(count);
    return false;
}

static void script(std::vector<uint32_t> values) {
    asked.clear();
    handed = std::move(values);
}

TEST(bn_random_fill, keeps_exactly_the_bytes_that_are_wanted) {
    test_host host;
    for (size_t count = 1; count <= 20; count++) {
        script({});
        bignum_guard number(number_of(std::string(128, '7')));
        EXPECT_EQ(bn_random_fill(count, number.get(), fill_with_ones), 0);
        EXPECT_EQ(hex_of(number.get()), std::string(2 * count, 'f'));
        EXPECT_EQ(asked, std::vector<size_t>{(count + 3) / 4 * 4});
        EXPECT_TRUE(is_sound(number.get()));
    }
}

TEST(bn_random_fill, of_no_bytes_is_zero_and_asks_for_none) {
    test_host host;
    script({});
    bignum_guard number(number_of("1234567890abcdef"));
    EXPECT_EQ(bn_random_fill(0, number.get(), fill_with_ones), 0);
    EXPECT_EQ(number->length, 0U);
    EXPECT_TRUE(is_sound(number.get()));
    EXPECT_TRUE(asked.empty());
}

TEST(bn_random_fill, takes_as_many_bytes_as_the_number_has_room_for) {
    test_host host;
    script({});
    bignum_guard number(bn_new(0, 0));
    EXPECT_EQ(bn_random_fill(64, number.get(), fill_with_ones), 0);
    EXPECT_EQ(bn_random_fill(65, number.get(), fill_with_ones), -1);
    EXPECT_EQ(asked, std::vector<size_t>{64});
}

TEST(bn_random_fill, fails_with_its_fill_function) {
    test_host host;
    script({});
    bignum_guard number(bn_new(0, 0));
    EXPECT_EQ(bn_random_fill(4, number.get(), failing_fill), -1);
}

TEST(bn_random_fill, drops_random_zeros_at_the_top) {
    test_host host;
    script({5});
    bignum_guard number(bn_new(0, 0));
    EXPECT_EQ(bn_random_fill(16, number.get(), scripted_fill), 0);
    EXPECT_TRUE(bn_equals_small(number.get(), 5));
}

TEST(bn_poor_random, has_room_for_a_limb_for_each_byte_and_one_more) {
    test_host host;
    script({});
    bignum_guard number(bn_poor_random(16, fill_with_ones));
    EXPECT_EQ(hex_of(number.get()), std::string(32, 'f'));
    EXPECT_EQ(number->capacity, 17U + 17U / 2 + 1);
}

TEST(bn_poor_random, tells_stderr_that_memory_is_out) {
    test_host host;
    for (uint32_t n : {1U, 2U}) {
        keep_stderr();
        host.fail_allocation = n;
        EXPECT_EQ(bn_poor_random(16, fill_with_ones), nullptr);
        EXPECT_EQ(stderr_text, "Cannot create bignum in bn_poor_random (length = 16)\n");
        EXPECT_EQ(host.blocks, 0);
    }
}

TEST(bn_poor_random, tells_stderr_that_the_fill_failed) {
    test_host host;
    keep_stderr();
    EXPECT_EQ(bn_poor_random(16, failing_fill), nullptr);
    EXPECT_EQ(stderr_text, "length = 16, rc = -1\n");
    EXPECT_EQ(host.blocks, 0);
}

// A key exchange with what it handed out; both stay absent where it failed.
struct key_pair {
    std::string failure;
    bignum_guard value, exponent;
};

static key_pair make_keys(const std::string &modulus, const std::string &generator, fill_function fill) {
    bignum_guard m(number_of(modulus)), g(number_of(generator));
    bignum *value = nullptr, *exponent = nullptr;
    std::string failure = noted_failure(dh_make_keys(&value, &exponent, m.get(), g.get(), fill));
    return {failure, bignum_guard(value), bignum_guard(exponent)};
}

TEST(dh_make_keys, raises_the_generator_to_a_random_power) {
    test_host host;
    script({3});
    key_pair keys = make_keys("17", "5", scripted_fill);
    EXPECT_EQ(keys.failure, "(none)");
    EXPECT_TRUE(bn_equals_small(keys.exponent.get(), 3));
    EXPECT_TRUE(bn_equals_small(keys.value.get(), 125 % 23));
}

TEST(dh_make_keys, has_4_bytes_of_exponent_for_each_limb_of_the_generator) {
    test_host host;
    script({3});
    make_keys("17", "5", scripted_fill);
    EXPECT_EQ(asked, std::vector<size_t>{4});
    script({3});
    make_keys(std::string(64, 'f'), "100000001", scripted_fill);
    EXPECT_EQ(asked, std::vector<size_t>{8});
}

TEST(dh_make_keys, never_hands_out_1_or_the_modulus_minus_1) {
    test_host host;
    script({0, 22, 11, 4}); // 5 has the order 22 modulo 23
    key_pair keys = make_keys("17", "5", scripted_fill);
    EXPECT_EQ(keys.failure, "(none)");
    EXPECT_TRUE(bn_equals_small(keys.exponent.get(), 4));
    EXPECT_TRUE(bn_equals_small(keys.value.get(), 625 % 23));
    EXPECT_EQ(asked, (std::vector<size_t>{4, 4, 4, 4}));
}

TEST(dh_make_keys, never_hands_out_a_value_whose_square_is_0_or_itself) {
    test_host host;
    script({3, 1}); // 6^3 is 0 modulo 9 and has the square 0
    EXPECT_EQ(make_keys("9", "6", scripted_fill).failure,
              "Error getting a random number for the key exchange");
    script({1}); // 3 times 3 is 3 modulo 6
    EXPECT_EQ(make_keys("6", "3", scripted_fill).failure,
              "Error getting a random number for the key exchange");
}

TEST(dh_make_keys, gives_up_on_a_group_without_a_sound_value) {
    test_host host;
    script({1});
    key_pair keys = make_keys("1", "5", scripted_fill);
    EXPECT_EQ(keys.failure, "Error getting a random number for the key exchange");
    EXPECT_EQ(asked.size(), static_cast<size_t>(DH_ATTEMPTS));
    EXPECT_EQ(keys.value, nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(dh_make_keys, succeeds_at_the_last_attempt) {
    test_host host;
    std::vector<uint32_t> values(DH_ATTEMPTS - 1, 0);
    values.push_back(3);
    script(values);
    EXPECT_EQ(make_keys("17", "5", scripted_fill).failure, "(none)");
}

TEST(dh_make_keys, fails_without_random_bytes) {
    test_host host;
    EXPECT_EQ(make_keys("17", "5", failing_fill).failure,
              "Error getting a random number for the key exchange");
    EXPECT_EQ(host.blocks, 0);
}

TEST(dh_make_keys, fails_when_random_bytes_run_out_behind_a_trivial_value) {
    test_host host;
    script({});
    fill_function first_only = [](void *buffer, size_t count) {
        memset(buffer, 0, count);
        asked.push_back(count);
        return asked.size() == 1;
    };
    EXPECT_EQ(make_keys("17", "5", first_only).failure, "Error getting a random number for the key exchange");
    EXPECT_EQ(asked.size(), 2U);
}

TEST(dh_make_keys, fails_at_modulus_zero) {
    test_host host;
    script({3});
    EXPECT_EQ(make_keys("0", "5", scripted_fill).failure,
              "Error calculating public part of shared secret key");
}

// The allocations of an attempt: 2 for the exponent, 6 for its power, 2 for the number 2, 6 for the square.
TEST(dh_make_keys, tells_where_memory_ran_out_and_frees_all) {
    test_host host;
    bignum_guard modulus(bn_new_small(23)), generator(bn_new_small(5));
    int64_t blocks = host.blocks;
    for (uint32_t n = 1; n <= 16; n++) {
        script({3});
        bignum *value = nullptr, *exponent = nullptr;
        host.fail_allocation = n;
        const char *expected = n <= 2    ? "Error getting a random number for the key exchange"
                               : n <= 8  ? "Error calculating public part of shared secret key"
                               : n <= 10 ? "Error allocating primary memory for key check"
                                         : "Error allocating secondary memory for key check";
        EXPECT_FAILURE(dh_make_keys(&value, &exponent, modulus.get(), generator.get(), scripted_fill),
                       expected);
        EXPECT_EQ(host.blocks, blocks) << n;
    }
}

TEST(dh_make_keys, lets_both_sides_agree_in_a_standard_group) {
    test_host host;
    for (const auto &row : read_vectors("modp.txt", 2)) {
        script({0x9e3779b9});
        key_pair ours = make_keys(row[1], "2", scripted_fill);
        script({0x7f4a7c15});
        key_pair theirs = make_keys(row[1], "2", scripted_fill);
        bignum_guard modulus(number_of(row[1]));
        bignum_guard here(bn_modexp(theirs.value.get(), ours.exponent.get(), modulus.get()));
        bignum_guard there(bn_modexp(ours.value.get(), theirs.exponent.get(), modulus.get()));
        EXPECT_TRUE(bn_equal(here.get(), there.get())) << row[0];
        EXPECT_FALSE(bn_equal(ours.value.get(), theirs.value.get()));
    }
}
