// The Diffie-Hellman key pair, and random numbers.
#pragma once

#include "crypto/bignum.h"

// Fills a buffer. False when no random bytes are to be had.
using fill_function = bool (*)(void *buffer, size_t count);

// A random number of exactly `count` bytes: 0, or -1 when the number has no room or the fill function fails.
int bn_random_fill(size_t count, bignum *number, fill_function fill);

// A new random number of `count` bytes, or absent.
bignum *bn_poor_random(size_t count, fill_function fill);

// A group in which every public value is trivial would be tried without end; a sound one never comes near
// this.
inline constexpr int DH_ATTEMPTS = 1000;

// The public value generator^x modulo modulus and the private exponent x, both the caller's. The exponent has
// 4 bytes for each limb of the generator. A public value in a trivial subgroup is never handed back.
[[nodiscard]] const char *dh_make_keys(bignum **out_public, bignum **out_private, const bignum *modulus,
                                       const bignum *generator, fill_function fill);
