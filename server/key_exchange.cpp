#include "server/key_exchange.h"

#include "crypto/md5.h"

#include <vector>

// RFC 2409, 6.2: 2^1024 - 2^960 - 1 + 2^64 * (the integer part of 2^894 pi, + 129093).
static constexpr unsigned char MODULUS[128] = {
    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xC9, 0x0F, 0xDA, 0xA2, 0x21, 0x68, 0xC2, 0x34,
    0xC4, 0xC6, 0x62, 0x8B, 0x80, 0xDC, 0x1C, 0xD1, 0x29, 0x02, 0x4E, 0x08, 0x8A, 0x67, 0xCC, 0x74,
    0x02, 0x0B, 0xBE, 0xA6, 0x3B, 0x13, 0x9B, 0x22, 0x51, 0x4A, 0x08, 0x79, 0x8E, 0x34, 0x04, 0xDD,
    0xEF, 0x95, 0x19, 0xB3, 0xCD, 0x3A, 0x43, 0x1B, 0x30, 0x2B, 0x0A, 0x6D, 0xF2, 0x5F, 0x14, 0x37,
    0x4F, 0xE1, 0x35, 0x6D, 0x6D, 0x51, 0xC2, 0x45, 0xE4, 0x85, 0xB5, 0x76, 0x62, 0x5E, 0x7E, 0xC6,
    0xF4, 0x4C, 0x42, 0xE9, 0xA6, 0x37, 0xED, 0x6B, 0x0B, 0xFF, 0x5C, 0xB6, 0xF4, 0x06, 0xB7, 0xED,
    0xEE, 0x38, 0x6B, 0xFB, 0x5A, 0x89, 0x9F, 0xA5, 0xAE, 0x9F, 0x24, 0x11, 0x7C, 0x4B, 0x1F, 0xE6,
    0x49, 0x28, 0x66, 0x51, 0xEC, 0xE6, 0x53, 0x81, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
};

// The power of 2 that generates. Any would do whose value fills the modulus; a prime leaves no doubt about
// its origin.
static constexpr uint32_t GENERATOR_EXPONENT = 65537;

static constexpr size_t NONCE_SIZE = 16;
static constexpr const char *OUT_OF_MEMORY = "out of memory";

const char *make_exchange_group(exchange_group *out) {
    out->modulus.reset(bn_new(0, sizeof MODULUS / sizeof(uint32_t)));
    bignum_guard two(bn_new_small(2));
    bignum_guard exponent(bn_new_small(GENERATOR_EXPONENT));
    if (out->modulus == nullptr || two == nullptr || exponent == nullptr) return OUT_OF_MEMORY;
    if (auto *failure = bn_set_data(out->modulus.get(), MODULUS, sizeof MODULUS)) return failure;
    out->generator.reset(bn_modexp(two.get(), exponent.get(), out->modulus.get()));
    return out->generator != nullptr ? nullptr : OUT_OF_MEMORY;
}

const char *check_public_value(const bignum *value, const bignum *modulus) {
    bignum_guard last(bn_copy(modulus, 0));
    if (last == nullptr) return OUT_OF_MEMORY;
    last->limbs[0]--; // the modulus is odd
    if (value->length == 0 || bn_equals_small(value, 1) || !bn_less(value, last.get()))
        return "the agent's public value is not sound";
    return nullptr;
}

static std::string decimal_text(const bignum *number) {
    char *text = nullptr;
    bn_to_decimal(&text, number);
    text_guard owner(text);
    return text != nullptr ? text : "";
}

const char *make_master_key(const exchange_group &group, const bignum *their_public,
                            const bignum *own_private, std::string *out) {
    bignum_guard secret(bn_modexp(their_public, own_private, group.modulus.get()));
    *out = secret != nullptr ? decimal_text(secret.get()) : "";
    return out->empty() ? OUT_OF_MEMORY : nullptr;
}

// MD5 over two texts, one behind the other.
static void digest_of(const std::string &first, const std::string &second, unsigned char out[MD5_SIZE]) {
    md5_state state;
    md5_init(&state);
    md5_update(&state, first.data(), first.size());
    md5_update(&state, second.data(), second.size());
    md5_final(&state, out);
}

const char *make_hallmark(const std::string &master_key, const bignum *nonce, std::string *out) {
    std::string text = decimal_text(nonce);
    if (text.empty()) return OUT_OF_MEMORY;
    unsigned char digest[MD5_SIZE];
    digest_of(master_key, text, digest);
    *out = hexadecimal(digest, sizeof digest);
    return nullptr;
}

bignum_guard challenge_response(const std::string &hallmark, const bignum *challenge) {
    std::string text = decimal_text(challenge);
    bignum_guard response(bn_new(0, MD5_SIZE / sizeof(uint32_t)));
    if (text.empty() || response == nullptr) return nullptr;
    unsigned char digest[MD5_SIZE];
    digest_of(hallmark, text, digest);
    return bn_set_data(response.get(), digest, sizeof digest) == nullptr ? std::move(response) : nullptr;
}

bignum_guard random_number(fill_function random) {
    unsigned char bytes[NONCE_SIZE];
    bignum_guard number(bn_new(0, NONCE_SIZE / sizeof(uint32_t)));
    if (number == nullptr || !random(bytes, sizeof bytes)) return nullptr;
    return bn_set_data(number.get(), bytes, sizeof bytes) == nullptr ? std::move(number) : nullptr;
}

std::string random_text(fill_function random, size_t size) {
    std::vector<unsigned char> bytes(size);
    return random(bytes.data(), size) ? hexadecimal(bytes.data(), size) : "";
}

std::string hexadecimal(const unsigned char *bytes, size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; i++) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}
