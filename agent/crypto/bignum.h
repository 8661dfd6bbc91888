// Big non-negative integers: modular exponentiation, and conversion from and to bytes and decimal text.
//
// A number has its top used limb non-zero, and length 0 for zero. All limbs from `length` to `capacity` are
// zero when a number is made or assigned; the arithmetic relies on that to read one limb past the top. The
// creator owns a number. Where an operation says so, -1 means that a result would not fit the capacity and 0
// success; a failed operation leaves its target's value undefined.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

struct bignum {
    uint32_t *limbs; // the least significant first
    uint64_t length;
    uint64_t capacity;
};

bignum *bn_new(uint32_t value, uint64_t hint); // absent when memory is out
bignum *bn_new_small(uint32_t value);
bignum *bn_copy(const bignum *source, uint64_t capacity);
void bn_free(bignum *number); // takes absent
void bn_normalize(bignum *number);
int bn_less(const bignum *a, const bignum *b);
int bn_equals_small(const bignum *a, uint32_t value);
int bn_equal(const bignum *a, const bignum *b);
int bn_assign(bignum *target, const bignum *source);
int bn_shift_left_one(bignum *number);
int bn_shift_left(bignum *number, uint64_t bits);
uint64_t bn_top_bit(const bignum *number); // 0 for zero

// Big-endian bytes without leading zeros. `*size` is the buffer's size before the call, the number's after
// it.
[[nodiscard]] const char *bn_get_data(const bignum *number, void *buffer, size_t *size);
[[nodiscard]] const char *bn_set_data(bignum *number, const void *bytes, size_t size);

// A new decimal text in `*out_text`, which stays as it is when memory is out.
void bn_to_decimal(char **out_text, const bignum *number);

// base to the power exponent modulo modulus; absent on failure.
bignum *bn_modexp(const bignum *base, const bignum *exponent, const bignum *modulus);

// Reduces `number`; `scratch` is destroyed.
int bn_mod(bignum *number, const bignum *modulus, bignum *scratch);

using bignum_guard = guard<bignum, bn_free>;
