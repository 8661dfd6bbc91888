#include "crypto/limbs.h"

#include <bit>
#include <cstring>

static constexpr uint64_t LIMB_BITS = 32;

// The largest sum, (2^32 - 1)^2 + 2 (2^32 - 1), is 2^64 - 1.
uint32_t limb_mul_add(uint32_t a, uint32_t b, uint32_t carry, uint32_t *target) {
    uint64_t sum = uint64_t{a} * b + carry + *target;
    *target = static_cast<uint32_t>(sum);
    return static_cast<uint32_t>(sum >> LIMB_BITS);
}

bool limbs_less(const uint32_t *a, const uint32_t *b, uint64_t count) {
    while (count-- > 0)
        if (a[count] != b[count]) return a[count] < b[count];
    return false;
}

void limbs_shift_left_one(uint32_t *limbs, uint64_t count) {
    limbs_shift_left(limbs, count, 1);
}

// The upper of two neighbours when both are shifted left by less than a limb.
static uint32_t joined(uint32_t high, uint32_t low, uint64_t bits) {
    uint64_t both = uint64_t{high} << LIMB_BITS | low;
    return static_cast<uint32_t>(both >> (LIMB_BITS - bits));
}

void limbs_shift_left(uint32_t *limbs, uint64_t count, uint64_t bits) {
    uint64_t whole = bits / LIMB_BITS;
    for (uint64_t i = count; i-- > 0;) {
        uint32_t high = i >= whole ? limbs[i - whole] : 0;
        uint32_t low = i > whole ? limbs[i - whole - 1] : 0;
        limbs[i] = joined(high, low, bits % LIMB_BITS);
    }
}

void limbs_shift_right(uint32_t *limbs, uint64_t count, uint64_t bits) {
    uint64_t whole = bits / LIMB_BITS;
    uint64_t rest = bits % LIMB_BITS;
    for (uint64_t i = 0; i < count; i++) {
        uint64_t low = whole < count - i ? limbs[i + whole] : 0;
        uint64_t high = whole + 1 < count - i ? limbs[i + whole + 1] : 0;
        limbs[i] = static_cast<uint32_t>((high << LIMB_BITS | low) >> rest);
    }
}

uint32_t limbs_sub(uint32_t *a, uint64_t count, const uint32_t *b, uint64_t b_count) {
    uint64_t borrow = 0;
    for (uint64_t i = 0; i < count; i++) {
        uint64_t difference = uint64_t{a[i]} - (i < b_count ? b[i] : 0) - borrow;
        a[i] = static_cast<uint32_t>(difference);
        borrow = difference >> 63;
    }
    return static_cast<uint32_t>(borrow);
}

void limbs_mul(uint32_t *out, const uint32_t *a, uint64_t a_count, const uint32_t *b, uint64_t b_count) {
    memset(out, 0, (a_count + b_count) * sizeof *out);
    for (uint64_t i = 0; i < a_count; i++) {
        uint32_t carry = 0;
        for (uint64_t j = 0; j < b_count; j++)
            carry = limb_mul_add(a[i], b[j], carry, &out[i + j]);
        out[i + b_count] = carry;
    }
}

uint32_t limbs_div_small(uint32_t *limbs, uint64_t count, uint32_t divisor) {
    uint64_t remainder = 0;
    while (count-- > 0) {
        uint64_t part = remainder << LIMB_BITS | limbs[count];
        limbs[count] = static_cast<uint32_t>(part / divisor);
        remainder = part % divisor;
    }
    return static_cast<uint32_t>(remainder);
}

uint64_t limbs_top_bit(const uint32_t *limbs, uint64_t count) {
    while (count > 0 && limbs[count - 1] == 0)
        count--;
    return count > 0 ? count * LIMB_BITS - 1 - static_cast<uint64_t>(std::countl_zero(limbs[count - 1])) : 0;
}

// Takes `digit` times `d` from `a` and returns what is to be taken from the limb above.
static uint32_t sub_multiple(uint32_t *a, const uint32_t *d, uint64_t count, uint64_t digit) {
    uint64_t carry = 0;
    for (uint64_t i = 0; i < count; i++) {
        uint64_t product = digit * d[i] + carry;
        auto low = static_cast<uint32_t>(product);
        carry = (product >> LIMB_BITS) + (a[i] < low ? 1 : 0);
        a[i] -= low;
    }
    return static_cast<uint32_t>(carry);
}

// One step of the long division: takes d from `a` with the limb `above` on top of it until less than d is
// left. The digit that the top limbs give is never too large, since the divisor's is rounded up, and as its
// top bit is set, the few times that are missing can be taken one by one.
static void take_multiples(uint32_t *a, uint32_t above, const uint32_t *d, uint64_t count) {
    uint64_t top = uint64_t{above} << LIMB_BITS | a[count - 1];
    uint64_t digit = top / (uint64_t{d[count - 1]} + 1);
    above -= sub_multiple(a, d, count, digit);
    while (above != 0 || !limbs_less(a, d, count))
        above -= limbs_sub(a, count, d, count);
}

void limbs_mod(uint32_t *a, uint64_t count, uint32_t *d, uint64_t d_count) {
    if (count < d_count) return;
    auto shift = static_cast<uint64_t>(std::countl_zero(d[d_count - 1]));
    limbs_shift_left(d, d_count, shift);
    uint32_t above = joined(0, a[count - 1], shift);
    limbs_shift_left(a, count, shift);
    for (uint64_t at = count - d_count; at > 0; at--) {
        take_multiples(a + at, above, d, d_count);
        above = a[at + d_count - 1];
        a[at + d_count - 1] = 0;
    }
    take_multiples(a, above, d, d_count);
    limbs_shift_right(a, d_count, shift);
}
