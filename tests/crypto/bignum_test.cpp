#include "crypto/bignum.h"

#include "crypto/kept_stderr.h"
#include "crypto/numbers.h"
#include "fakes/test_host.h"

#include <cstring>

using wide = unsigned __int128;

TEST(bn_new, of_zero_has_no_limbs_in_use) {
    test_host host;
    bignum_guard zero(bn_new(0, 0));
    EXPECT_EQ(zero->length, 0U);
    EXPECT_TRUE(bn_equals_small(zero.get(), 0));
}

TEST(bn_new, has_half_as_much_room_again_as_asked_for) {
    test_host host;
    for (auto [hint, capacity] :
         {std::pair(0U, 16U), {9U, 16U}, {10U, 16U}, {11U, 17U}, {16U, 25U}, {100U, 151U}})
        EXPECT_EQ(bignum_guard(bn_new(1, hint))->capacity, capacity) << hint;
}

TEST(bn_new, clears_all_limbs_above_the_value) {
    test_host host;
    bignum_guard number(bn_new(0xFFFFFFFF, 20));
    EXPECT_EQ(number->length, 1U);
    EXPECT_EQ(number->limbs[0], 0xFFFFFFFF);
    EXPECT_TRUE(is_sound(number.get()));
}

TEST(bn_new, refuses_a_hint_that_no_memory_holds) {
    test_host host;
    EXPECT_EQ(bn_new(0, UINT64_MAX), nullptr);
    EXPECT_EQ(bn_new(0, UINT64_MAX / 4), nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(bn_new, frees_what_it_made_when_memory_is_out) {
    test_host host;
    for (uint32_t n : {1U, 2U}) {
        host.fail_allocation = n;
        EXPECT_EQ(bn_new(1, 0), nullptr);
        EXPECT_EQ(host.blocks, 0);
    }
}

TEST(bn_new, complains_of_bad_alignment_and_goes_on) {
    test_host host;
    keep_stderr();
    static char memory[2][128];
    static int next;
    static const heap_ops crooked = {
        .allocate = [](size_t) -> void * { return next++ == 0 ? memory[0] : memory[1] + 1; },
        .release = [](void *) {},
    };
    next = 0;
    heap_host = &crooked;
    bignum_guard number(bn_new(0, 0));
    EXPECT_NE(number, nullptr);
    EXPECT_EQ(stderr_text, "Bad alignment!\n");
}

TEST(bn_new, says_nothing_of_good_alignment) {
    test_host host;
    keep_stderr();
    bignum_guard number(bn_new(1, 0));
    EXPECT_EQ(stderr_text, "");
}

TEST(bn_new_small, asks_for_sixteen_limbs) {
    test_host host;
    bignum_guard number(bn_new_small(7));
    EXPECT_EQ(number->capacity, 25U);
    EXPECT_TRUE(bn_equals_small(number.get(), 7));
}

TEST(bn_copy, has_the_largest_of_three_capacities) {
    test_host host;
    bignum_guard small(bn_new(5, 100)), large(number_of(std::string(160, 'f')));
    EXPECT_EQ(bignum_guard(bn_copy(small.get(), 0))->capacity, 16U);
    EXPECT_EQ(bignum_guard(bn_copy(small.get(), 17))->capacity, 17U);
    EXPECT_EQ(bignum_guard(bn_copy(large.get(), 17))->capacity, 20U);
}

TEST(bn_copy, shares_nothing_with_its_source) {
    test_host host;
    bignum_guard source(number_of("123456789abcdef0")), copy(bn_copy(source.get(), 0));
    EXPECT_TRUE(bn_equal(copy.get(), source.get()));
    EXPECT_TRUE(is_sound(copy.get()));
    bn_shift_left_one(copy.get());
    EXPECT_EQ(hex_of(source.get()), "123456789abcdef0");
}

TEST(bn_copy, frees_what_it_made_when_memory_is_out) {
    test_host host;
    bignum_guard source(bn_new(5, 0));
    int64_t blocks = host.blocks;
    for (uint32_t n : {1U, 2U}) {
        host.fail_allocation = n;
        EXPECT_EQ(bn_copy(source.get(), 0), nullptr);
        EXPECT_EQ(host.blocks, blocks);
    }
}

TEST(bn_free, takes_absent) {
    test_host host;
    bn_free(nullptr);
    EXPECT_EQ(host.blocks, 0);
}

TEST(bn_free, frees_limbs_and_number) {
    test_host host;
    bignum *number = bn_new(1, 0);
    EXPECT_EQ(host.blocks, 2);
    bn_free(number);
    EXPECT_EQ(host.blocks, 0);
}

TEST(bn_normalize, drops_zero_limbs_at_the_top_alone) {
    test_host host;
    bignum_guard number(number_of("1000000000000000000000000"));
    number->length = 16;
    bn_normalize(number.get());
    EXPECT_EQ(number->length, 4U);
}

TEST(bn_less, compares_lengths_first_and_then_from_the_top) {
    test_host host;
    bignum_guard one_limb(number_of("ffffffff")), two(number_of("100000000")), more(number_of("1ffffffff"));
    EXPECT_EQ(bn_less(one_limb.get(), two.get()), 1);
    EXPECT_EQ(bn_less(two.get(), one_limb.get()), 0);
    EXPECT_EQ(bn_less(two.get(), more.get()), 1);
    EXPECT_EQ(bn_less(more.get(), two.get()), 0);
}

TEST(bn_less, is_false_for_equal_numbers) {
    test_host host;
    bignum_guard a(number_of("123456789a")), b(number_of("123456789a")), zero(bn_new(0, 0));
    EXPECT_EQ(bn_less(a.get(), b.get()), 0);
    EXPECT_EQ(bn_less(zero.get(), zero.get()), 0);
}

TEST(bn_equals_small, looks_at_all_limbs) {
    test_host host;
    bignum_guard number(number_of("100000005")), five(bn_new(5, 0));
    EXPECT_EQ(bn_equals_small(number.get(), 5), 0);
    EXPECT_EQ(bn_equals_small(five.get(), 5), 1);
    EXPECT_EQ(bn_equals_small(five.get(), 0), 0);
    EXPECT_EQ(bn_equals_small(five.get(), 6), 0);
}

TEST(bn_equal, looks_at_length_and_limbs) {
    test_host host;
    bignum_guard a(number_of("100000005")), b(number_of("100000005")), shorter(number_of("5")),
        other(number_of("200000005"));
    EXPECT_EQ(bn_equal(a.get(), b.get()), 1);
    EXPECT_EQ(bn_equal(a.get(), shorter.get()), 0);
    EXPECT_EQ(bn_equal(a.get(), other.get()), 0);
}

TEST(bn_assign, clears_the_rest_of_the_target) {
    test_host host;
    bignum_guard target(number_of(std::string(128, 'f'))), source(bn_new(5, 0));
    EXPECT_EQ(bn_assign(target.get(), source.get()), 0);
    EXPECT_TRUE(bn_equals_small(target.get(), 5));
    EXPECT_TRUE(is_sound(target.get()));
}

TEST(bn_assign, takes_what_just_fits) {
    test_host host;
    bignum_guard target(bn_new(0, 0)), source(number_of(std::string(128, 'f')));
    EXPECT_EQ(bn_assign(target.get(), source.get()), 0);
    EXPECT_TRUE(bn_equal(target.get(), source.get()));
}

TEST(bn_assign, refuses_more_than_the_capacity) {
    test_host host;
    bignum_guard target(bn_new(0, 0)), source(number_of("1" + std::string(128, '0')));
    EXPECT_EQ(bn_assign(target.get(), source.get()), -1);
}

TEST(bn_shift_left_one, grows_by_a_limb_when_the_top_bit_was_set) {
    test_host host;
    bignum_guard number(number_of("80000001"));
    EXPECT_EQ(bn_shift_left_one(number.get()), 0);
    EXPECT_EQ(number->length, 2U);
    EXPECT_EQ(hex_of(number.get()), "100000002");
}

TEST(bn_shift_left_one, keeps_its_length_otherwise) {
    test_host host;
    bignum_guard number(number_of("7fffffff")), zero(bn_new(0, 0));
    EXPECT_EQ(bn_shift_left_one(number.get()), 0);
    EXPECT_EQ(number->length, 1U);
    EXPECT_EQ(hex_of(number.get()), "fffffffe");
    EXPECT_EQ(bn_shift_left_one(zero.get()), 0);
    EXPECT_EQ(zero->length, 0U);
}

TEST(bn_shift_left_one, refuses_a_bit_beyond_the_capacity) {
    test_host host;
    bignum_guard full(number_of("8" + std::string(127, '0'))), almost(number_of("4" + std::string(127, '0')));
    EXPECT_EQ(bn_shift_left_one(full.get()), -1);
    EXPECT_EQ(bn_shift_left_one(almost.get()), 0);
}

TEST(bn_shift_left, refuses_a_bit_beyond_the_capacity) {
    test_host host;
    bignum_guard fits(bn_new(1, 0)), passes(bn_new(1, 0)), passes_far(bn_new(1, 0));
    EXPECT_EQ(bn_shift_left(fits.get(), 511), 0);
    EXPECT_EQ(bn_top_bit(fits.get()), 511U);
    EXPECT_EQ(bn_shift_left(passes.get(), 512), -1);
    EXPECT_EQ(bn_shift_left(passes_far.get(), UINT64_MAX), -1);
}

TEST(bn_shift_left, leaves_zero_at_any_number_of_bits) {
    test_host host;
    bignum_guard zero(bn_new(0, 0));
    EXPECT_EQ(bn_shift_left(zero.get(), 100'000), 0);
    EXPECT_EQ(zero->length, 0U);
}

TEST(bn_shift_left, equals_as_many_shifts_by_one) {
    test_host host;
    std::mt19937 random(11);
    for (int i = 0; i < 300; i++) {
        bignum_guard number(number_of(random_hex(random, 1 + random() % 6))), other(bn_copy(number.get(), 0));
        uint64_t bits = random() % 200;
        EXPECT_EQ(bn_shift_left(number.get(), bits), 0);
        for (uint64_t done = 0; done < bits; done++)
            EXPECT_EQ(bn_shift_left_one(other.get()), 0);
        ASSERT_TRUE(bn_equal(number.get(), other.get())) << bits;
        ASSERT_TRUE(is_sound(number.get()));
    }
}

TEST(bn_top_bit, is_the_index_of_the_highest_bit) {
    test_host host;
    for (auto [hex, bit] : {std::pair("0", 0U), {"1", 0U}, {"2", 1U}, {"ffffffff", 31U}, {"100000000", 32U}})
        EXPECT_EQ(bn_top_bit(number_of(hex).get()), bit) << hex;
}

TEST(bn_get_data, refuses_less_room_than_whole_limbs_and_tells_how_much) {
    test_host host;
    bignum_guard number(number_of("100000000"));
    unsigned char buffer[8];
    for (size_t size : {size_t{4}, size_t{7}}) {
        EXPECT_FAILURE(bn_get_data(number.get(), buffer, &size), "Buffer given to bn_get_data is too small");
        EXPECT_EQ(size, 8U);
    }
}

TEST(bn_get_data, gives_no_leading_zeros) {
    test_host host;
    bignum_guard number(number_of("00000000000000000123456789"));
    unsigned char buffer[20];
    size_t size = sizeof buffer;
    EXPECT_SUCCESS(bn_get_data(number.get(), buffer, &size));
    EXPECT_EQ(hex_of_bytes(buffer, size), "0123456789");
}

TEST(bn_get_data, of_zero_is_empty) {
    test_host host;
    bignum_guard zero(bn_new(0, 0));
    unsigned char buffer[1];
    for (size_t size : {size_t{0}, size_t{1}}) {
        EXPECT_SUCCESS(bn_get_data(zero.get(), buffer, &size));
        EXPECT_EQ(size, 0U);
    }
}

TEST(bn_set_data, of_zeros_is_zero) {
    test_host host;
    bignum_guard number(bn_new(9, 0));
    EXPECT_SUCCESS(bn_set_data(number.get(), std::string(16, '\0').data(), 16));
    EXPECT_EQ(number->length, 0U);
    size_t size = 4;
    unsigned char buffer[4];
    EXPECT_SUCCESS(bn_get_data(number.get(), buffer, &size));
    EXPECT_EQ(size, 0U);
}

TEST(bn_set_data, of_nothing_is_zero) {
    test_host host;
    bignum_guard number(bn_new(9, 0));
    EXPECT_SUCCESS(bn_set_data(number.get(), nullptr, 0));
    EXPECT_EQ(number->length, 0U);
    EXPECT_TRUE(is_sound(number.get()));
}

TEST(bn_set_data, puts_the_last_byte_lowest) {
    test_host host;
    bignum_guard number(bn_new(0, 0));
    EXPECT_SUCCESS(bn_set_data(number.get(), "\x01\x02\x03\x04\x05", 5));
    EXPECT_EQ(number->limbs[0], 0x02030405U);
    EXPECT_EQ(number->limbs[1], 1U);
    EXPECT_EQ(number->length, 2U);
}

TEST(bn_set_data, leaves_nothing_of_the_old_value) {
    test_host host;
    bignum_guard number(number_of(std::string(128, 'f')));
    EXPECT_SUCCESS(bn_set_data(number.get(), "\x05", 1));
    EXPECT_TRUE(bn_equals_small(number.get(), 5));
    EXPECT_TRUE(is_sound(number.get()));
}

TEST(bn_set_data, keeps_the_limbs_where_they_have_room) {
    test_host host;
    bignum_guard number(bn_new(0, 0));
    uint32_t *limbs = number->limbs;
    EXPECT_SUCCESS(bn_set_data(number.get(), std::string(64, '\xEE').data(), 64));
    EXPECT_EQ(number->limbs, limbs);
    EXPECT_EQ(number->capacity, 16U);
}

TEST(bn_set_data, replaces_limbs_that_lack_room_by_whole_ones) {
    test_host host;
    bignum_guard number(bn_new(0, 0));
    EXPECT_SUCCESS(bn_set_data(number.get(), std::string(65, '\x11').data(), 65));
    EXPECT_EQ(number->capacity, 17U);
    EXPECT_EQ(hex_of(number.get()), std::string(130, '1'));
    EXPECT_EQ(host.blocks, 2);
}

TEST(bn_set_data, leaves_the_number_when_memory_is_out) {
    test_host host;
    bignum_guard number(bn_new(9, 0));
    host.fail_allocation = 1;
    EXPECT_FAILURE(bn_set_data(number.get(), std::string(65, 'x').data(), 65),
                   "Unable to allocate space for new data");
    EXPECT_TRUE(bn_equals_small(number.get(), 9));
    EXPECT_EQ(number->capacity, 16U);
}

TEST(bn_set_data, is_undone_by_bn_get_data_at_every_length) {
    test_host host;
    std::mt19937 random(12);
    for (size_t length = 1; length < 200; length++) {
        std::string bytes(1, '\x01');
        while (bytes.size() < length)
            bytes.push_back(static_cast<char>(random()));
        bignum_guard number(bn_new(0, 0));
        ASSERT_STREQ(bn_set_data(number.get(), bytes.data(), length), nullptr);
        ASSERT_TRUE(is_sound(number.get()));
        ASSERT_EQ(bytes_of_hex(hex_of(number.get())), bytes);
    }
}

TEST(bn_to_decimal, of_zero_is_one_digit) {
    test_host host;
    EXPECT_EQ(decimal_of(bignum_guard(bn_new(0, 0)).get()), "0");
    EXPECT_EQ(host.blocks, 0);
}

TEST(bn_to_decimal, of_two_to_the_power_64) {
    test_host host;
    EXPECT_EQ(decimal_of(number_of("10000000000000000").get()), "18446744073709551616");
}

TEST(bn_to_decimal, keeps_inner_zeros_and_has_no_leading_ones) {
    test_host host;
    for (auto [hex, text] : {std::pair("1", "1"),
                             {"a", "10"},
                             {"3b9ac9ff", "999999999"},
                             {"3b9aca00", "1000000000"},
                             {"3b9aca01", "1000000001"},
                             {"de0b6b3a7640000", "1000000000000000000"},
                             {"de0b6b3a763ffff", "999999999999999999"},
                             {"ffffffff", "4294967295"}})
        EXPECT_EQ(decimal_of(number_of(hex).get()), text);
}

TEST(bn_to_decimal, agrees_with_slow_arithmetic) {
    test_host host;
    std::mt19937 random(13);
    for (int i = 0; i < 500; i++) {
        std::string hex = random_hex(random, random() % 12);
        ASSERT_EQ(decimal_of(number_of(hex).get()), slow_text(slow_of_hex(hex))) << hex;
    }
}

TEST(bn_to_decimal, leaves_the_number_as_it_is) {
    test_host host;
    bignum_guard number(number_of("123456789abcdef0"));
    decimal_of(number.get());
    EXPECT_EQ(hex_of(number.get()), "123456789abcdef0");
}

TEST(bn_to_decimal, leaves_the_text_when_memory_is_out) {
    test_host host;
    bignum_guard number(bn_new(9, 0));
    for (uint32_t n : {1U, 2U, 3U}) {
        char old[] = "old";
        char *text = old;
        host.fail_allocation = n;
        bn_to_decimal(&text, number.get());
        EXPECT_EQ(text, old);
        EXPECT_EQ(host.blocks, 2);
    }
}

TEST(bn_mod, refuses_modulus_zero) {
    test_host host;
    bignum_guard number(bn_new(9, 0)), zero(bn_new(0, 0)), scratch(bn_new(0, 0));
    EXPECT_EQ(bn_mod(number.get(), zero.get(), scratch.get()), -1);
    EXPECT_EQ(bn_mod(zero.get(), zero.get(), scratch.get()), -1);
}

TEST(bn_mod, refuses_a_scratch_number_without_room_for_either) {
    test_host host;
    bignum_guard small(bn_new(9, 0)), scratch(bn_new(0, 0)), large(number_of("1" + std::string(128, '0')));
    EXPECT_EQ(bn_mod(small.get(), large.get(), scratch.get()), -1);
    EXPECT_EQ(bn_mod(large.get(), small.get(), scratch.get()), -1);
}

TEST(bn_mod, needs_no_more_room_than_the_numbers_have) {
    test_host host;
    bignum_guard number(number_of(std::string(128, 'f'))), scratch(bn_new(0, 0)),
        modulus(number_of("8" + std::string(127, '0')));
    EXPECT_EQ(bn_mod(number.get(), modulus.get(), scratch.get()), 0);
    EXPECT_EQ(hex_of(number.get()), "7" + std::string(127, 'f'));
}

TEST(bn_mod, leaves_a_smaller_number) {
    test_host host;
    bignum_guard number(number_of("123456789")), modulus(number_of("12345678a")), scratch(bn_new(0, 0));
    EXPECT_EQ(bn_mod(number.get(), modulus.get(), scratch.get()), 0);
    EXPECT_EQ(hex_of(number.get()), "123456789");
}

TEST(bn_mod, of_the_modulus_is_zero) {
    test_host host;
    bignum_guard number(number_of("123456789")), modulus(number_of("123456789")), scratch(bn_new(0, 0));
    EXPECT_EQ(bn_mod(number.get(), modulus.get(), scratch.get()), 0);
    EXPECT_EQ(number->length, 0U);
}

TEST(bn_mod, agrees_with_slow_arithmetic) {
    test_host host;
    std::mt19937 random(14);
    for (int i = 0; i < 1500; i++) {
        std::string a = random_hex(random, 1 + random() % 10);
        std::string m = "1" + random_hex(random, random() % 7);
        bignum_guard number(number_of(a)), modulus(number_of(m)), scratch(bn_new(0, 0));
        ASSERT_EQ(bn_mod(number.get(), modulus.get(), scratch.get()), 0);
        ASSERT_TRUE(is_sound(number.get()));
        ASSERT_EQ(decimal_of(number.get()), slow_text(slow_remainder(slow_of_hex(a), slow_of_hex(m))))
            << a << " " << m;
    }
}

static std::string modexp_of(const std::string &base, const std::string &exponent,
                             const std::string &modulus) {
    bignum_guard b(number_of(base)), e(number_of(exponent)), m(number_of(modulus));
    bignum_guard result(bn_modexp(b.get(), e.get(), m.get()));
    EXPECT_TRUE(result == nullptr || is_sound(result.get()));
    return result != nullptr ? hex_of(result.get()) : "(none)";
}

TEST(bn_modexp, of_power_zero_is_one_even_modulo_one) {
    test_host host;
    EXPECT_EQ(modexp_of("7", "0", "5"), "1");
    EXPECT_EQ(modexp_of("0", "0", "5"), "1");
    EXPECT_EQ(modexp_of("7", "0", "1"), "1");
}

TEST(bn_modexp, modulo_one_is_zero_otherwise) {
    test_host host;
    EXPECT_EQ(modexp_of("7", "1", "1"), "0");
    EXPECT_EQ(modexp_of("7", "10001", "1"), "0");
}

TEST(bn_modexp, of_4_to_the_13th_modulo_497_is_445) {
    test_host host;
    EXPECT_EQ(modexp_of("4", "d", "1f1"), "1bd");
}

TEST(bn_modexp, reduces_a_base_larger_than_the_modulus) {
    test_host host;
    EXPECT_EQ(modexp_of("3e8", "1", "7"), "6");
    EXPECT_EQ(modexp_of("1" + std::string(100, '0'), "1", "ff"), "1");
    EXPECT_EQ(modexp_of("2" + std::string(64, '0'), "3", "ffffffff"), "8");
}

TEST(bn_modexp, leaves_its_arguments) {
    test_host host;
    bignum_guard base(number_of("123456789abcdef012345")), exponent(number_of("fedcba9876")),
        modulus(number_of("10000000f"));
    bignum_guard result(bn_modexp(base.get(), exponent.get(), modulus.get()));
    EXPECT_EQ(hex_of(base.get()), "123456789abcdef012345");
    EXPECT_EQ(hex_of(exponent.get()), "fedcba9876");
    EXPECT_EQ(hex_of(modulus.get()), "10000000f");
}

TEST(bn_modexp, fails_at_modulus_zero) {
    test_host host;
    EXPECT_EQ(modexp_of("7", "3", "0"), "(none)");
    EXPECT_EQ(modexp_of("7", "2", "0"), "(none)");
    EXPECT_EQ(host.blocks, 0);
}

TEST(bn_modexp, gives_the_known_results) {
    test_host host;
    for (const auto &row : read_vectors("modexp.txt", 4))
        EXPECT_EQ(modexp_of(row[0], row[1], row[2]), row[3]) << row[0] << " " << row[1] << " " << row[2];
}

TEST(bn_modexp, agrees_with_wide_integers) {
    test_host host;
    std::mt19937_64 random(15);
    for (int i = 0; i < 2000; i++) {
        uint64_t modulus = std::max<uint64_t>(random() >> random() % 64, 1), base = random() >> random() % 64;
        uint32_t exponent = static_cast<uint32_t>(random() >> (32 + random() % 32));
        wide expected = 1 % modulus;
        for (int bit = 31; bit >= 0; bit--)
            expected = expected * expected % modulus * (exponent >> bit & 1 ? base % modulus : 1) % modulus;
        if (exponent == 0) expected = 1;
        char b[17], e[17], m[17], r[17];
        snprintf(b, sizeof b, "%zx", base);
        snprintf(e, sizeof e, "%x", exponent);
        snprintf(m, sizeof m, "%zx", modulus);
        snprintf(r, sizeof r, "%zx", static_cast<uint64_t>(expected));
        ASSERT_EQ(modexp_of(b, e, m), r) << b << " " << e << " " << m;
    }
}

TEST(bn_modexp, gives_one_at_a_primes_order) {
    test_host host;
    for (const auto &row : read_vectors("modp.txt", 2)) {
        if (row[1].size() > 256) continue; // the larger ones take seconds under a sanitizer
        std::string order = row[1];
        order.back() = 'e';
        EXPECT_EQ(modexp_of("2", order, row[1]), "1") << row[0];
    }
}

TEST(bn_modexp, gives_both_sides_the_same_secret) {
    test_host host;
    bignum_guard g(bn_new_small(2)), a(number_of("c0ffee1234567890")), b(number_of("badc0de987654321"));
    for (const auto &row : read_vectors("modp.txt", 2)) {
        bignum_guard p(number_of(row[1]));
        bignum_guard from_a(bn_modexp(g.get(), a.get(), p.get())),
            from_b(bn_modexp(g.get(), b.get(), p.get()));
        bignum_guard at_a(bn_modexp(from_b.get(), a.get(), p.get())),
            at_b(bn_modexp(from_a.get(), b.get(), p.get()));
        EXPECT_TRUE(bn_equal(at_a.get(), at_b.get())) << row[0];
        EXPECT_FALSE(bn_equal(at_a.get(), from_a.get())) << row[0];
    }
}

TEST(bn_modexp, allocates_nothing_inside_its_loop) {
    test_host host;
    bignum_guard base(bn_new_small(3)), small(bn_new_small(1)), large(number_of(std::string(64, 'f')));
    for (const bignum *exponent : {small.get(), large.get()}) {
        host.fail_allocation = 100;
        bignum_guard result(bn_modexp(base.get(), exponent, large.get()));
        EXPECT_EQ(host.fail_allocation, 94U);
    }
}

TEST(bn_modexp, frees_all_when_memory_is_out) {
    test_host host;
    bignum_guard base(bn_new_small(3)), modulus(bn_new_small(7));
    int64_t blocks = host.blocks;
    for (uint32_t n = 1; n <= 6; n++) {
        host.fail_allocation = n;
        EXPECT_EQ(bn_modexp(base.get(), base.get(), modulus.get()), nullptr) << n;
        EXPECT_EQ(host.blocks, blocks);
    }
}
