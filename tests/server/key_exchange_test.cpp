#include "server/key_exchange.h"

#include "crypto/random_fill.h"
#include "fakes/test_host.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

bignum_guard small(uint32_t value) {
    return bignum_guard(bn_new_small(value));
}

bool no_random(void *, size_t) {
    return false;
}

bool all_fives(void *buffer, size_t size) {
    memset(buffer, 5, size);
    return true;
}

// modulus - `less`.
bignum_guard below(const exchange_group &group, uint32_t less) {
    bignum_guard number(bn_copy(group.modulus.get(), 0));
    number->limbs[0] -= less;
    return number;
}

} // namespace

TEST(exchange_group, makes_an_agent_take_a_long_exponent) {
    test_host host;
    exchange_group group;
    EXPECT_SUCCESS(make_exchange_group(&group));
    EXPECT_EQ(bn_top_bit(group.modulus.get()), 1023U);
    EXPECT_EQ(group.generator->length, group.modulus->length);
}

TEST(exchange_group, generates_the_subgroup_of_prime_order) {
    test_host host;
    exchange_group group;
    EXPECT_SUCCESS(make_exchange_group(&group));
    bignum_guard half = below(group, 1); // (modulus - 1) / 2
    for (size_t i = 0; i < half->length; i++)
        half->limbs[i] = half->limbs[i] >> 1 | (i + 1 < half->length ? half->limbs[i + 1] << 31 : 0);
    bn_normalize(half.get());
    bignum_guard power(bn_modexp(group.generator.get(), half.get(), group.modulus.get()));
    EXPECT_TRUE(bn_equals_small(power.get(), 1));
    EXPECT_FALSE(bn_equals_small(group.generator.get(), 1));
}

TEST(check_public_value, refuses_what_makes_the_secret_guessable) {
    test_host host;
    exchange_group group;
    EXPECT_SUCCESS(make_exchange_group(&group));
    const bignum *modulus = group.modulus.get();
    const char *refusal = "the agent's public value is not sound";
    EXPECT_FAILURE(check_public_value(small(0).get(), modulus), refusal);
    EXPECT_FAILURE(check_public_value(small(1).get(), modulus), refusal);
    EXPECT_FAILURE(check_public_value(below(group, 1).get(), modulus), refusal);
    EXPECT_FAILURE(check_public_value(below(group, 0).get(), modulus), refusal);
    EXPECT_SUCCESS(check_public_value(below(group, 2).get(), modulus));
    EXPECT_SUCCESS(check_public_value(small(2).get(), modulus));
}

TEST(make_master_key, is_the_same_on_both_sides) {
    test_host host;
    exchange_group group;
    EXPECT_SUCCESS(make_exchange_group(&group));
    bignum *publics[2];
    bignum *privates[2];
    for (int i : {0, 1})
        EXPECT_SUCCESS(
            dh_make_keys(&publics[i], &privates[i], group.modulus.get(), group.generator.get(), random_fill));
    std::string keys[2];
    for (int i : {0, 1})
        EXPECT_SUCCESS(make_master_key(group, publics[1 - i], privates[i], &keys[i]));
    EXPECT_EQ(keys[0], keys[1]);
    EXPECT_GT(keys[0].size(), 250U);
    for (int i : {0, 1}) {
        bn_free(publics[i]);
        bn_free(privates[i]);
    }
}

// MD5 of "1234" + "5678", by md5sum.
TEST(make_hallmark, is_the_digest_of_key_and_nonce) {
    test_host host;
    std::string hallmark;
    EXPECT_SUCCESS(make_hallmark("1234", small(5678).get(), &hallmark));
    EXPECT_EQ(hallmark, "25d55ad283aa400af464c76d713c07ad");
}

TEST(challenge_response, is_the_digest_of_hallmark_and_challenge) {
    test_host host;
    bignum_guard response = challenge_response("1234", small(5678).get());
    unsigned char bytes[16];
    size_t size = sizeof bytes;
    EXPECT_SUCCESS(bn_get_data(response.get(), bytes, &size));
    EXPECT_EQ(hexadecimal(bytes, size), "25d55ad283aa400af464c76d713c07ad");
}

TEST(random_number, has_sixteen_bytes) {
    test_host host;
    bignum_guard number = random_number(all_fives);
    EXPECT_EQ(number->length, 4U);
    EXPECT_EQ(number->limbs[3], 0x05050505U);
}

TEST(random_number, is_absent_without_random_bytes) {
    test_host host;
    EXPECT_EQ(random_number(no_random), nullptr);
    EXPECT_EQ(random_text(no_random, 4), "");
}

TEST(random_text, is_hexadecimal) {
    test_host host;
    EXPECT_EQ(random_text(all_fives, 4), "05050505");
}

TEST(key_exchange, reports_that_memory_is_out) {
    for (uint32_t n = 1; n <= 3; n++) {
        test_host host;
        exchange_group group;
        host.fail_allocation = n;
        EXPECT_FAILURE(make_exchange_group(&group), "out of memory");
    }
    test_host host;
    std::string hallmark;
    bignum_guard nonce = small(7);
    host.fail_allocation = 1;
    EXPECT_FAILURE(make_hallmark("1", nonce.get(), &hallmark), "out of memory");
    host.fail_allocation = 1;
    EXPECT_EQ(challenge_response("1", nonce.get()), nullptr);
    host.fail_allocation = 1;
    EXPECT_EQ(random_number(all_fives), nullptr);
}
