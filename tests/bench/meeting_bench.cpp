// The key exchange of a first meeting with a group of 1024 bits, beside the same arithmetic in GMP.

#include "crypto/bignum.h"
#include "crypto/dh.h"

#include <benchmark/benchmark.h>
#include <gmp.h>
#include <random>
#include <vector>

namespace {

constexpr size_t SIZE = 128; // bytes of 1024 bits

using bytes = std::vector<unsigned char>;

// Bytes of a fixed series, with both outer bits set: a number of full size, odd as a modulus is.
bytes number_bytes(unsigned seed) {
    std::mt19937 series(seed);
    bytes out(SIZE);
    for (unsigned char &byte : out)
        byte = static_cast<unsigned char>(series());
    out.front() |= 0x80;
    out.back() |= 0x01;
    return out;
}

struct numbers {
    bytes modulus = number_bytes(1), base = number_bytes(2), exponent = number_bytes(3);
    numbers() { base.front() &= 0x7F; } // below the modulus
};

bignum_guard own_number(const bytes &from) {
    bignum_guard number(bn_new(0, SIZE / 4));
    return bn_set_data(number.get(), from.data(), from.size()) == nullptr ? std::move(number) : nullptr;
}

struct library_number {
    library_number() { mpz_init(value); }
    explicit library_number(const bytes &from) : library_number() {
        mpz_import(value, from.size(), 1, 1, 1, 0, from.data());
    }
    ~library_number() { mpz_clear(value); }
    library_number(const library_number &) = delete;
    library_number &operator=(const library_number &) = delete;
    mpz_t value;
};

bool agree(const bignum *own, const library_number &theirs) {
    bytes mine(SIZE + 4), other(SIZE + 4);
    size_t my_size = mine.size(), other_size = 0;
    if (own == nullptr || bn_get_data(own, mine.data(), &my_size) != nullptr) return false;
    mpz_export(other.data(), &other_size, 1, 1, 1, 0, theirs.value);
    mine.resize(my_size);
    other.resize(other_size);
    return mine == other;
}

void own_power(benchmark::State &state) {
    numbers n;
    bignum_guard base = own_number(n.base), exponent = own_number(n.exponent),
                 modulus = own_number(n.modulus);
    bignum_guard power;
    for (auto _ : state)
        power.reset(bn_modexp(base.get(), exponent.get(), modulus.get()));
    library_number theirs;
    mpz_powm(theirs.value, library_number(n.base).value, library_number(n.exponent).value,
             library_number(n.modulus).value);
    if (!agree(power.get(), theirs)) state.SkipWithError("the two differ");
}

void library_power(benchmark::State &state) {
    numbers n;
    library_number base(n.base), exponent(n.exponent), modulus(n.modulus), power;
    for (auto _ : state)
        mpz_powm(power.value, base.value, exponent.value, modulus.value);
}

bool fixed_fill(void *buffer, size_t count) {
    std::mt19937 series(4);
    for (size_t i = 0; i < count; i++)
        static_cast<unsigned char *>(buffer)[i] = static_cast<unsigned char>(series());
    return true;
}

// What the agent computes: its own key pair, with the check of its public value, and the shared secret in
// decimal.
void own_meeting(benchmark::State &state) {
    numbers n;
    bignum_guard generator = own_number(n.base), modulus = own_number(n.modulus);
    bignum_guard server_public = own_number(number_bytes(5));
    for (auto _ : state) {
        bignum *own_public = nullptr, *own_private = nullptr;
        auto *failure = dh_make_keys(&own_public, &own_private, modulus.get(), generator.get(), fixed_fill);
        if (failure != nullptr) return state.SkipWithError(failure);
        bignum_guard public_value(own_public), private_value(own_private);
        bignum_guard secret(bn_modexp(server_public.get(), own_private, modulus.get()));
        char *text = nullptr;
        bn_to_decimal(&text, secret.get());
        heap_free(text);
    }
}

void library_meeting(benchmark::State &state) {
    numbers n;
    library_number generator(n.base), modulus(n.modulus), server_public(number_bytes(5));
    for (auto _ : state) {
        bytes random(SIZE);
        fixed_fill(random.data(), random.size());
        library_number exponent(random), public_value, square, secret;
        mpz_powm(public_value.value, generator.value, exponent.value, modulus.value);
        mpz_powm_ui(square.value, public_value.value, 2, modulus.value);
        mpz_powm(secret.value, server_public.value, exponent.value, modulus.value);
        char *text = mpz_get_str(nullptr, 10, secret.value);
        benchmark::DoNotOptimize(text);
        free(text);
    }
}

} // namespace

BENCHMARK(own_power)->Name("modexp_1024/ours")->Unit(benchmark::kMicrosecond);
BENCHMARK(library_power)->Name("modexp_1024/gmp")->Unit(benchmark::kMicrosecond);
BENCHMARK(own_meeting)->Name("first_meeting_1024/ours")->Unit(benchmark::kMicrosecond);
BENCHMARK(library_meeting)->Name("first_meeting_1024/gmp")->Unit(benchmark::kMicrosecond);
