#include "crypto/dh.h"

#include "platform/files.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

static constexpr const char *NO_RANDOM_NUMBER = "Error getting a random number for the key exchange";

int bn_random_fill(size_t count, bignum *number, fill_function fill) {
    constexpr size_t limb = sizeof(uint32_t);
    if (number->capacity * limb < count) return -1;
    std::fill(number->limbs, number->limbs + number->capacity, 0);
    number->length = count / limb + (count % limb != 0 ? 1 : 0);
    if (number->length == 0) return 0;
    if (!fill(number->limbs, number->length * limb)) return -1;
    if (count % limb != 0) number->limbs[number->length - 1] &= (1U << count % limb * 8) - 1;
    bn_normalize(number);
    return 0;
}

static void say(const char *text) {
    file_write_all(files_host->stderr_handle, text, strlen(text));
}

bignum *bn_poor_random(size_t count, fill_function fill) {
    char text[100];
    bignum_guard number(bn_new(0, uint64_t{count} + 1));
    if (number == nullptr) {
        snprintf(text, sizeof text, "Cannot create bignum in bn_poor_random (length = %zu)\n", count);
        say(text);
        return nullptr;
    }
    int code = bn_random_fill(count, number.get(), fill);
    if (code != 0) {
        snprintf(text, sizeof text, "length = %zu, rc = %i\n", count, code);
        say(text);
        return nullptr;
    }
    return number.release();
}

// Values whose square is 0, 1 or the value itself lie in a trivial subgroup and would give the secret away.
static const char *judge_public(const bignum *value, const bignum *modulus, bool *out_trivial) {
    bignum_guard two(bn_new_small(2));
    if (two == nullptr) return "Error allocating primary memory for key check";
    bignum_guard square(bn_modexp(value, two.get(), modulus));
    if (square == nullptr) return "Error allocating secondary memory for key check";
    *out_trivial =
        bn_equals_small(square.get(), 0) || bn_equals_small(square.get(), 1) || bn_equal(square.get(), value);
    return nullptr;
}

const char *dh_make_keys(bignum **out_public, bignum **out_private, const bignum *modulus,
                         const bignum *generator, fill_function fill) {
    for (int attempt = 0; attempt < DH_ATTEMPTS; attempt++) {
        bignum_guard exponent(bn_poor_random(generator->length * sizeof(uint32_t), fill));
        if (exponent == nullptr) return NO_RANDOM_NUMBER;
        bignum_guard value(bn_modexp(generator, exponent.get(), modulus));
        if (value == nullptr) return "Error calculating public part of shared secret key";
        bool trivial = false;
        if (auto *failure = judge_public(value.get(), modulus, &trivial)) return failure;
        if (trivial) continue;
        *out_public = value.release();
        *out_private = exponent.release();
        return nullptr;
    }
    return NO_RANDOM_NUMBER;
}
