#include "crypto/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>

// The integer part of 2^32 times the sine of 1, 2, 3 ... 64 radians, without sign (RFC 1321, 3.4).
static constexpr uint32_t SINES[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391,
};

static uint32_t word_at(const unsigned char *bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

static void put_word(unsigned char *bytes, uint32_t word) {
    for (int i = 0; i < 4; i++)
        bytes[i] = static_cast<unsigned char>(word >> (8 * i));
}

// The function of a round and the word that its step takes.
static uint32_t mixed(int step, uint32_t b, uint32_t c, uint32_t d, const uint32_t words[16]) {
    switch (step / 16) {
    case 0:
        return ((b & c) | (~b & d)) + words[step];
    case 1:
        return ((b & d) | (c & ~d)) + words[(5 * step + 1) % 16];
    case 2:
        return (b ^ c ^ d) + words[(3 * step + 5) % 16];
    default:
        return (c ^ (b | ~d)) + words[7 * step % 16];
    }
}

static void digest_block(uint32_t state[4], const unsigned char *block) {
    static constexpr int rotations[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    uint32_t words[16];
    for (int i = 0; i < 16; i++)
        words[i] = word_at(block + 4 * i);
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (int step = 0; step < 64; step++) {
        uint32_t sum = a + mixed(step, b, c, d, words) + SINES[step];
        a = d;
        d = c;
        c = b;
        b += std::rotl(sum, rotations[step / 16][step % 4]);
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

void md5_init(md5_state *state) {
    *state = {.words = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}};
}

void md5_update(md5_state *state, const void *bytes, size_t length) {
    auto *at = static_cast<const unsigned char *>(bytes);
    while (length > 0) {
        size_t filled = state->length % sizeof state->block;
        size_t taken = std::min(length, sizeof state->block - filled);
        memcpy(state->block + filled, at, taken);
        state->length += taken;
        if (filled + taken == sizeof state->block) digest_block(state->words, state->block);
        at += taken;
        length -= taken;
    }
}

// The padding is a one bit and zeros up to the 8 bytes in which the length in bits ends the last block.
void md5_final(md5_state *state, unsigned char out[MD5_SIZE]) {
    static constexpr unsigned char padding[64] = {0x80};
    unsigned char bits[8];
    put_word(bits, static_cast<uint32_t>(state->length << 3));
    put_word(bits + 4, static_cast<uint32_t>(state->length >> 29));
    size_t filled = state->length % sizeof state->block;
    md5_update(state, padding, (filled < 56 ? 56 : 120) - filled);
    md5_update(state, bits, sizeof bits);
    for (int i = 0; i < 4; i++)
        put_word(out + 4 * i, state->words[i]);
    *state = {};
}
