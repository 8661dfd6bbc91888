// AES with a 128-bit key in electronic codebook mode (FIPS 197), in the shape of its submission interface.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t AES_BLOCK = 16;

enum : int { AES_ENCRYPT = 0, AES_DECRYPT = 1 };
enum : int { AES_MODE_ECB = 1 };
enum : int {
    AES_TRUE = 1,
    AES_BAD_KEY_DIR = -1,
    AES_BAD_KEY_MAT = -2,
    AES_BAD_KEY_INSTANCE = -3,
    AES_BAD_CIPHER_MODE = -4,
    AES_BAD_CIPHER_STATE = -5,
};

struct aes_key {
    bool ready; // false while the schedule is unset
    int direction;
    uint32_t schedule[44];
};

struct aes_cipher {
    int mode;
};

// AES_TRUE or a negative code. Only 128 bits are known; `material` is 32 hexadecimal characters.
int makeKey(aes_key *key, int direction, int bits, const char *material);
int cipherInit(aes_cipher *cipher, int mode, const char *initial_value);

// The number of bits handled, whole blocks only, or a negative code. Input and output may be the same.
int blockEncrypt(aes_cipher *cipher, const aes_key *key, const void *input, int bits, void *output);
int blockDecrypt(aes_cipher *cipher, const aes_key *key, const void *input, int bits, void *output);
