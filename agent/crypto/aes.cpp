#include "crypto/aes.h"

#include <bit>
#include <utility>

namespace {

constexpr int ROUNDS = 10;
constexpr int KEY_WORDS = 4;

// Products in the field of FIPS 197, 4.2.
constexpr uint8_t doubled(uint8_t a) {
    return static_cast<uint8_t>(a << 1 ^ (a & 0x80 ? 0x1B : 0));
}

constexpr uint8_t product(uint8_t a, uint8_t b) {
    uint8_t sum = 0;
    for (; b != 0; b = static_cast<uint8_t>(b >> 1), a = doubled(a))
        if (b & 1) sum ^= a;
    return sum;
}

// The inverse of a is its 254th power, the product of its 2nd, 4th, 8th ... 128th; that of 0 stands for 0.
constexpr uint8_t inverse(uint8_t a) {
    uint8_t out = 1;
    for (int i = 0; i < 7; i++) {
        a = product(a, a);
        out = product(out, a);
    }
    return out;
}

// FIPS 197, 5.1.1.
constexpr uint8_t box_entry(uint8_t a) {
    uint8_t b = inverse(a);
    return static_cast<uint8_t>(b ^ std::rotl(b, 1) ^ std::rotl(b, 2) ^ std::rotl(b, 3) ^ std::rotl(b, 4) ^
                                0x63);
}

// What one byte of a column becomes in a round, by the row that it stands in: substituted and mixed.
struct round_tables {
    uint8_t box[256];
    uint32_t mixed[4][256];
};

struct cipher_tables {
    round_tables forward;
    round_tables backward;
};

// Sets what a byte gives: the column for row 0, the same rotated for the rows below.
constexpr void set_column(round_tables *tables, int byte, uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
    uint32_t column = uint32_t{a} << 24 | uint32_t{b} << 16 | uint32_t{c} << 8 | d;
    for (int row = 0; row < 4; row++)
        tables->mixed[row][byte] = std::rotr(column, 8 * row);
}

constexpr cipher_tables make_tables() {
    cipher_tables made = {};
    for (int i = 0; i < 256; i++) {
        uint8_t out = box_entry(static_cast<uint8_t>(i));
        made.forward.box[i] = out;
        made.backward.box[out] = static_cast<uint8_t>(i);
    }
    for (int i = 0; i < 256; i++) {
        uint8_t out = made.forward.box[i];
        set_column(&made.forward, i, doubled(out), out, out, product(out, 3));
        uint8_t in = made.backward.box[i];
        set_column(&made.backward, i, product(in, 14), product(in, 9), product(in, 13), product(in, 11));
    }
    return made;
}

constexpr cipher_tables TABLES = make_tables();

uint32_t word_at(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

void put_word(uint8_t *bytes, uint32_t word) {
    bytes[0] = static_cast<uint8_t>(word >> 24);
    bytes[1] = static_cast<uint8_t>(word >> 16);
    bytes[2] = static_cast<uint8_t>(word >> 8);
    bytes[3] = static_cast<uint8_t>(word);
}

// A column behind a full round; its rows come from four columns. The last round only substitutes.
uint32_t mix(const round_tables &tables, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return tables.mixed[0][a >> 24] ^ tables.mixed[1][b >> 16 & 0xFF] ^ tables.mixed[2][c >> 8 & 0xFF] ^
           tables.mixed[3][d & 0xFF];
}

uint32_t substitute(const round_tables &tables, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    return uint32_t{tables.box[a >> 24]} << 24 | uint32_t{tables.box[b >> 16 & 0xFF]} << 16 |
           uint32_t{tables.box[c >> 8 & 0xFF]} << 8 | tables.box[d & 0xFF];
}

// Rows are rotated to the left when enciphering, so that a column takes its second byte from its right
// neighbour; deciphering turns them back.
void encrypt_block(const uint32_t *key, const uint8_t *in, uint8_t *out) {
    const round_tables &tables = TABLES.forward;
    uint32_t a = word_at(in) ^ key[0], b = word_at(in + 4) ^ key[1];
    uint32_t c = word_at(in + 8) ^ key[2], d = word_at(in + 12) ^ key[3];
    for (int round = 1; round < ROUNDS; round++) {
        key += 4;
        uint32_t e = mix(tables, a, b, c, d) ^ key[0], f = mix(tables, b, c, d, a) ^ key[1];
        uint32_t g = mix(tables, c, d, a, b) ^ key[2], h = mix(tables, d, a, b, c) ^ key[3];
        a = e, b = f, c = g, d = h;
    }
    put_word(out, substitute(tables, a, b, c, d) ^ key[4]);
    put_word(out + 4, substitute(tables, b, c, d, a) ^ key[5]);
    put_word(out + 8, substitute(tables, c, d, a, b) ^ key[6]);
    put_word(out + 12, substitute(tables, d, a, b, c) ^ key[7]);
}

// The equivalent inverse cipher (FIPS 197, 5.3.5).
void decrypt_block(const uint32_t *key, const uint8_t *in, uint8_t *out) {
    const round_tables &tables = TABLES.backward;
    uint32_t a = word_at(in) ^ key[0], b = word_at(in + 4) ^ key[1];
    uint32_t c = word_at(in + 8) ^ key[2], d = word_at(in + 12) ^ key[3];
    for (int round = 1; round < ROUNDS; round++) {
        key += 4;
        uint32_t e = mix(tables, a, d, c, b) ^ key[0], f = mix(tables, b, a, d, c) ^ key[1];
        uint32_t g = mix(tables, c, b, a, d) ^ key[2], h = mix(tables, d, c, b, a) ^ key[3];
        a = e, b = f, c = g, d = h;
    }
    put_word(out, substitute(tables, a, d, c, b) ^ key[4]);
    put_word(out + 4, substitute(tables, b, a, d, c) ^ key[5]);
    put_word(out + 8, substitute(tables, c, b, a, d) ^ key[6]);
    put_word(out + 12, substitute(tables, d, c, b, a) ^ key[7]);
}

int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parse_key(const char *material, uint32_t words[KEY_WORDS]) {
    for (int i = 0; i < KEY_WORDS * 8; i++) {
        int digit = digit_value(material[i]);
        if (digit < 0) return false;
        words[i / 8] = words[i / 8] << 4 | static_cast<uint32_t>(digit);
    }
    return true;
}

// FIPS 197, 5.2, behind the first four words.
void expand(uint32_t *schedule) {
    uint8_t round_constant = 1;
    for (int i = KEY_WORDS; i < KEY_WORDS * (ROUNDS + 1); i++) {
        uint32_t word = schedule[i - 1];
        if (i % KEY_WORDS == 0) {
            word = std::rotl(word, 8);
            word = substitute(TABLES.forward, word, word, word, word) ^ uint32_t { round_constant } << 24;
            round_constant = doubled(round_constant);
        }
        schedule[i] = schedule[i - KEY_WORDS] ^ word;
    }
}

// Deciphering takes the round keys from the last to the first, all but the outer ones with their columns
// unmixed.
void turn_around(uint32_t *schedule) {
    for (int low = 0, high = KEY_WORDS * ROUNDS; low < high; low += KEY_WORDS, high -= KEY_WORDS)
        for (int i = 0; i < KEY_WORDS; i++)
            std::swap(schedule[low + i], schedule[high + i]);
    for (int i = KEY_WORDS; i < KEY_WORDS * ROUNDS; i++) {
        uint32_t word = schedule[i];
        // The tables substitute back first, which the box undoes.
        word = substitute(TABLES.forward, word, word, word, word);
        schedule[i] = mix(TABLES.backward, word, word, word, word);
    }
}

using block_function = void (*)(const uint32_t *key, const uint8_t *in, uint8_t *out);

int crypt_blocks(const aes_key *key, const void *input, int bits, void *output, block_function crypt) {
    auto *in = static_cast<const uint8_t *>(input);
    auto *out = static_cast<uint8_t *>(output);
    int blocks = bits > 0 ? bits / static_cast<int>(AES_BLOCK * 8) : 0;
    for (int i = 0; i < blocks; i++, in += AES_BLOCK, out += AES_BLOCK)
        crypt(key->schedule, in, out);
    return blocks * static_cast<int>(AES_BLOCK * 8);
}

int check_use(const aes_cipher *cipher, const aes_key *key, int direction) {
    if (cipher == nullptr || cipher->mode != AES_MODE_ECB) return AES_BAD_CIPHER_STATE;
    if (key == nullptr || !key->ready) return AES_BAD_KEY_INSTANCE;
    return key->direction == direction ? AES_TRUE : AES_BAD_KEY_DIR;
}

} // namespace

int makeKey(aes_key *key, int direction, int bits, const char *material) {
    if (key == nullptr) return AES_BAD_KEY_INSTANCE;
    *key = {};
    if (direction != AES_ENCRYPT && direction != AES_DECRYPT) return AES_BAD_KEY_DIR;
    if (bits != KEY_WORDS * 32 || material == nullptr || !parse_key(material, key->schedule))
        return AES_BAD_KEY_MAT;
    expand(key->schedule);
    if (direction == AES_DECRYPT) turn_around(key->schedule);
    key->direction = direction;
    key->ready = true;
    return AES_TRUE;
}

int cipherInit(aes_cipher *cipher, int mode, const char *) {
    cipher->mode = mode;
    return mode == AES_MODE_ECB ? AES_TRUE : AES_BAD_CIPHER_MODE;
}

int blockEncrypt(aes_cipher *cipher, const aes_key *key, const void *input, int bits, void *output) {
    int code = check_use(cipher, key, AES_ENCRYPT);
    return code == AES_TRUE ? crypt_blocks(key, input, bits, output, encrypt_block) : code;
}

int blockDecrypt(aes_cipher *cipher, const aes_key *key, const void *input, int bits, void *output) {
    int code = check_use(cipher, key, AES_DECRYPT);
    return code == AES_TRUE ? crypt_blocks(key, input, bits, output, decrypt_block) : code;
}
