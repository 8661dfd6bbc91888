#include "crypto/bignum.h"

#include "crypto/limbs.h"
#include "platform/files.h"

#include <algorithm>
#include <cstring>

static constexpr uint64_t LIMB_SIZE = sizeof(uint32_t);
static constexpr uint64_t LIMB_BITS = 32;
static constexpr uint64_t LEAST_CAPACITY = 16;
static constexpr uint64_t LARGEST_CAPACITY = SIZE_MAX / LIMB_SIZE;

static uint32_t *new_limbs(uint64_t capacity) {
    return static_cast<uint32_t *>(heap_alloc(capacity * LIMB_SIZE));
}

static bignum *new_with_capacity(uint64_t capacity) {
    if (capacity > LARGEST_CAPACITY) return nullptr;
    bignum_guard number(heap_new<bignum>());
    if (number == nullptr) return nullptr;
    number->capacity = capacity;
    number->limbs = new_limbs(capacity);
    return number->limbs != nullptr ? number.release() : nullptr;
}

bignum *bn_new(uint32_t value, uint64_t hint) {
    if (hint > LARGEST_CAPACITY / 2) return nullptr;
    bignum *number = new_with_capacity(std::max(LEAST_CAPACITY, hint + hint / 2 + 1));
    if (number == nullptr) return nullptr;
    if (reinterpret_cast<uintptr_t>(number->limbs) % LIMB_SIZE != 0)
        file_write_all(files_host->stderr_handle, "Bad alignment!\n", strlen("Bad alignment!\n"));
    if (value != 0) {
        number->limbs[0] = value;
        number->length = 1;
    }
    return number;
}

bignum *bn_new_small(uint32_t value) {
    return bn_new(value, LEAST_CAPACITY);
}

bignum *bn_copy(const bignum *source, uint64_t capacity) {
    bignum *copy = new_with_capacity(std::max({source->length, LEAST_CAPACITY, capacity}));
    if (copy != nullptr) bn_assign(copy, source);
    return copy;
}

void bn_free(bignum *number) {
    if (number == nullptr) return;
    heap_free(number->limbs);
    heap_free(number);
}

void bn_normalize(bignum *number) {
    while (number->length > 0 && number->limbs[number->length - 1] == 0)
        number->length--;
}

int bn_less(const bignum *a, const bignum *b) {
    if (a->length != b->length) return a->length < b->length;
    return limbs_less(a->limbs, b->limbs, a->length);
}

int bn_equals_small(const bignum *a, uint32_t value) {
    if (value == 0) return a->length == 0;
    return a->length == 1 && a->limbs[0] == value;
}

int bn_equal(const bignum *a, const bignum *b) {
    return a->length == b->length && std::equal(a->limbs, a->limbs + a->length, b->limbs);
}

int bn_assign(bignum *target, const bignum *source) {
    if (source->length > target->capacity) return -1;
    memmove(target->limbs, source->limbs, source->length * LIMB_SIZE);
    std::fill(target->limbs + source->length, target->limbs + target->capacity, 0);
    target->length = source->length;
    return 0;
}

int bn_shift_left_one(bignum *number) {
    if (number->length == 0) return 0;
    if (number->limbs[number->length - 1] >> (LIMB_BITS - 1) != 0) {
        if (number->length == number->capacity) return -1;
        number->length++;
    }
    limbs_shift_left_one(number->limbs, number->length);
    return 0;
}

int bn_shift_left(bignum *number, uint64_t bits) {
    if (number->length == 0) return 0;
    if (bits / LIMB_BITS >= number->capacity) return -1;
    uint64_t length = (bn_top_bit(number) + bits) / LIMB_BITS + 1;
    if (length > number->capacity) return -1;
    limbs_shift_left(number->limbs, length, bits);
    number->length = length;
    return 0;
}

uint64_t bn_top_bit(const bignum *number) {
    return limbs_top_bit(number->limbs, number->length);
}

const char *bn_get_data(const bignum *number, void *buffer, size_t *size) {
    size_t room = number->length * LIMB_SIZE;
    if (*size < room) {
        *size = room;
        return "Buffer given to bn_get_data is too small";
    }
    auto *bytes = static_cast<unsigned char *>(buffer);
    size_t count = number->length != 0 ? bn_top_bit(number) / 8 + 1 : 0;
    for (size_t i = 0; i < count; i++)
        bytes[count - 1 - i] =
            static_cast<unsigned char>(number->limbs[i / LIMB_SIZE] >> (i % LIMB_SIZE * 8));
    *size = count;
    return nullptr;
}

const char *bn_set_data(bignum *number, const void *bytes, size_t size) {
    uint64_t needed = size / LIMB_SIZE + (size % LIMB_SIZE != 0 ? 1 : 0);
    if (needed > number->capacity) {
        uint32_t *limbs = new_limbs(needed);
        if (limbs == nullptr) return "Unable to allocate space for new data";
        heap_free(number->limbs);
        number->limbs = limbs;
        number->capacity = needed;
    }
    std::fill(number->limbs, number->limbs + number->capacity, 0);
    for (size_t i = 0; i < size; i++) {
        uint32_t byte = static_cast<const unsigned char *>(bytes)[size - 1 - i];
        number->limbs[i / LIMB_SIZE] |= byte << (i % LIMB_SIZE * 8);
    }
    number->length = number->capacity;
    bn_normalize(number);
    return nullptr;
}

// Takes nine digits off `rest` and adds them to `text`, the lowest first; the last ones without leading
// zeros.
static char *take_digits(bignum *rest, char *text) {
    uint32_t block = limbs_div_small(rest->limbs, rest->length, 1'000'000'000);
    bn_normalize(rest);
    for (int i = 0; i < 9 && (block != 0 || rest->length != 0); i++) {
        *text++ = static_cast<char>('0' + block % 10);
        block /= 10;
    }
    return text;
}

void bn_to_decimal(char **out_text, const bignum *number) {
    constexpr uint64_t digits_of_a_limb = 10;
    bignum_guard rest(bn_copy(number, 0));
    if (rest == nullptr) return;
    auto *text = static_cast<char *>(heap_alloc(rest->length * digits_of_a_limb + 2));
    if (text == nullptr) return;
    char *end = text + 1; // behind the zero byte that will be the terminator
    while (rest->length != 0)
        end = take_digits(rest.get(), end);
    if (end == text + 1) *end++ = '0';
    std::reverse(text, end);
    *out_text = text;
}

int bn_mod(bignum *number, const bignum *modulus, bignum *scratch) {
    if (modulus->length == 0 || scratch->capacity < number->length || bn_assign(scratch, modulus) != 0)
        return -1;
    limbs_mod(number->limbs, number->length, scratch->limbs, scratch->length);
    bn_normalize(number);
    return 0;
}

// Multiplies `target` by `factor`, which may be the target itself.
static int multiply_mod(bignum *target, const bignum *factor, const bignum *modulus, bignum *scratch) {
    if (bn_assign(scratch, target) != 0) return -1;
    if (factor == target) factor = scratch;
    uint64_t length = scratch->length + factor->length;
    if (length > target->capacity) return -1;
    limbs_mul(target->limbs, scratch->limbs, scratch->length, factor->limbs, factor->length);
    target->length = length;
    bn_normalize(target);
    return bn_mod(target, modulus, scratch);
}

// Goes through the exponent's bits from the lowest up; `power` starts as the base and is squared at each.
static int raise(bignum *result, bignum *power, const bignum *exponent, const bignum *modulus,
                 bignum *scratch) {
    if (exponent->length == 0) return 0;
    uint64_t top = bn_top_bit(exponent);
    for (uint64_t bit = 0;; bit++) {
        bool set = exponent->limbs[bit / LIMB_BITS] >> (bit % LIMB_BITS) & 1;
        if (set && multiply_mod(result, power, modulus, scratch) != 0) return -1;
        if (bit == top) return 0;
        if (multiply_mod(power, power, modulus, scratch) != 0) return -1;
    }
}

// The base is not reduced first; the room made here is that of its product with a reduced number, and of its
// square.
bignum *bn_modexp(const bignum *base, const bignum *exponent, const bignum *modulus) {
    uint64_t longer = std::max(base->length, modulus->length);
    bignum_guard scratch(bn_new(0, 2 * longer + 1));
    bignum_guard power(scratch != nullptr ? bn_copy(base, scratch->capacity) : nullptr);
    bignum_guard result(power != nullptr ? bn_new(1, modulus->length + longer) : nullptr);
    if (result == nullptr || raise(result.get(), power.get(), exponent, modulus, scratch.get()) != 0)
        return nullptr;
    return result.release();
}
