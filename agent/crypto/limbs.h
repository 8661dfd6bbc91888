// Arithmetic on arrays of 32-bit limbs, the least significant first, which the big numbers are built from.
//
// Nothing here allocates, and nothing is written beyond the counts that are given.
#pragma once

#include <cstdint>

// Multiplies, adds `carry` and what stands at `target`, stores the low half there and returns the high half.
uint32_t limb_mul_add(uint32_t a, uint32_t b, uint32_t carry, uint32_t *target);

bool limbs_less(const uint32_t *a, const uint32_t *b, uint64_t count);

// What passes the top or the bottom is dropped.
void limbs_shift_left_one(uint32_t *limbs, uint64_t count);
void limbs_shift_left(uint32_t *limbs, uint64_t count, uint64_t bits);
void limbs_shift_right(uint32_t *limbs, uint64_t count, uint64_t bits);

// Takes `b` from `a`, which has at least as many limbs, and returns the final borrow.
uint32_t limbs_sub(uint32_t *a, uint64_t count, const uint32_t *b, uint64_t b_count);

// The product has the sum of both counts, and may be neither of the factors.
void limbs_mul(uint32_t *out, const uint32_t *a, uint64_t a_count, const uint32_t *b, uint64_t b_count);

// Divides in place and returns the remainder.
uint32_t limbs_div_small(uint32_t *limbs, uint64_t count, uint32_t divisor);

// The index of the highest set bit, 0 for zero.
uint64_t limbs_top_bit(const uint32_t *limbs, uint64_t count);

// Reduces `a` modulo `d`, whose top limb is not zero; `d` is destroyed.
void limbs_mod(uint32_t *a, uint64_t count, uint32_t *d, uint64_t d_count);
