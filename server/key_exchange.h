// The arithmetic of the opening: the master key, the hallmark made of it, and the proof that both sides know
// it.
//
// The group is the second of RFC 2409, 1024 bits, the largest of the published ones that a number on the wire
// can hold. An agent takes four bytes of exponent for each limb of the generator, so the generator is not 2
// but a power of it that is as long as the modulus: it generates the same subgroup, of prime order, and the
// exponents are long.
#pragma once

#include "crypto/bignum.h"
#include "crypto/dh.h"

#include <string>

struct exchange_group {
    bignum_guard modulus, generator;
};

[[nodiscard]] const char *make_exchange_group(exchange_group *out);

// Refuses values that make the secret guessable: 0, 1, modulus - 1 and what is not below the modulus.
[[nodiscard]] const char *check_public_value(const bignum *value, const bignum *modulus);

// The master key: the decimal text of the shared secret.
[[nodiscard]] const char *make_master_key(const exchange_group &group, const bignum *their_public,
                                          const bignum *own_private, std::string *out);

// 32 hexadecimal characters, from the master key and a nonce.
[[nodiscard]] const char *make_hallmark(const std::string &master_key, const bignum *nonce, std::string *out);

// What proves the knowledge of the hallmark to the one who has made the challenge; absent when memory is out.
bignum_guard challenge_response(const std::string &hallmark, const bignum *challenge);

// A random number of 16 bytes; absent when there are no random bytes.
bignum_guard random_number(fill_function random);

// `size` random bytes in hexadecimal; empty when there are none.
std::string random_text(fill_function random, size_t size);
std::string hexadecimal(const unsigned char *bytes, size_t size);
