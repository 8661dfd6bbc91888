#include "crypto/aes.h"

#include "crypto/vectors.h"

#include <random>

static constexpr const char *KEY = "2b7e151628aed2a6abf7158809cf4f3c";

// A key of each direction and a cipher to use them with.
struct aes_pair {
    explicit aes_pair(const std::string &key) {
        EXPECT_EQ(makeKey(&encrypt, AES_ENCRYPT, 128, key.c_str()), AES_TRUE);
        EXPECT_EQ(makeKey(&decrypt, AES_DECRYPT, 128, key.c_str()), AES_TRUE);
        EXPECT_EQ(cipherInit(&cipher, AES_MODE_ECB, nullptr), AES_TRUE);
    }
    aes_key encrypt, decrypt;
    aes_cipher cipher;
};

TEST(blockEncrypt, gives_the_known_ciphertexts) {
    for (const auto &row : read_vectors("aes.txt", 3)) {
        aes_pair aes(row[0]);
        std::string in = bytes_of_hex(row[1]), out(16, '\0');
        EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, in.data(), 128, out.data()), 128);
        EXPECT_EQ(hex_of_bytes(out.data(), 16), row[2]);
    }
}

TEST(blockDecrypt, gives_the_known_plaintexts) {
    for (const auto &row : read_vectors("aes.txt", 3)) {
        aes_pair aes(row[0]);
        std::string in = bytes_of_hex(row[2]), out(16, '\0');
        EXPECT_EQ(blockDecrypt(&aes.cipher, &aes.decrypt, in.data(), 128, out.data()), 128);
        EXPECT_EQ(hex_of_bytes(out.data(), 16), row[1]);
    }
}

TEST(blockEncrypt, gives_the_known_ends_of_long_chains_in_place) {
    for (const auto &row : read_vectors("aes_chain.txt", 4)) {
        aes_pair aes(row[0]);
        std::string block = bytes_of_hex(row[1]);
        for (int i = 0; i < std::stoi(row[2]); i++)
            blockEncrypt(&aes.cipher, &aes.encrypt, block.data(), 128, block.data());
        EXPECT_EQ(hex_of_bytes(block.data(), 16), row[3]);
    }
}

TEST(blockDecrypt, gives_the_known_starts_of_long_chains_in_place) {
    for (const auto &row : read_vectors("aes_chain.txt", 4)) {
        aes_pair aes(row[0]);
        std::string block = bytes_of_hex(row[3]);
        for (int i = 0; i < std::stoi(row[2]); i++)
            blockDecrypt(&aes.cipher, &aes.decrypt, block.data(), 128, block.data());
        EXPECT_EQ(hex_of_bytes(block.data(), 16), row[1]);
    }
}

TEST(blockEncrypt, handles_each_block_by_itself) {
    aes_pair aes(KEY);
    std::string in(48, 'x'), out(48, '\0');
    in[17] = 'y';
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, in.data(), 384, out.data()), 384);
    EXPECT_EQ(out.substr(0, 16), out.substr(32, 16));
    EXPECT_NE(out.substr(0, 16), out.substr(16, 16));
}

TEST(blockEncrypt, handles_whole_blocks_alone) {
    aes_pair aes(KEY);
    std::string in(32, 'x'), out(32, '\0');
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, in.data(), 255, out.data()), 128);
    EXPECT_EQ(out.substr(16), std::string(16, '\0'));
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, in.data(), 127, out.data()), 0);
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, in.data(), -128, out.data()), 0);
}

TEST(blockDecrypt, undoes_blockEncrypt_for_any_key) {
    std::mt19937 random(21);
    for (int i = 0; i < 500; i++) {
        std::string key(16, '\0'), block(16, '\0');
        for (size_t j = 0; j < 16; j++) {
            key[j] = static_cast<char>(random());
            block[j] = static_cast<char>(random());
        }
        aes_pair aes(hex_of_bytes(key.data(), 16));
        std::string changed = block;
        blockEncrypt(&aes.cipher, &aes.encrypt, changed.data(), 128, changed.data());
        ASSERT_NE(changed, block);
        blockDecrypt(&aes.cipher, &aes.decrypt, changed.data(), 128, changed.data());
        ASSERT_EQ(changed, block);
    }
}

TEST(makeKey, takes_digits_of_either_case) {
    aes_key lower, upper;
    EXPECT_EQ(makeKey(&lower, AES_ENCRYPT, 128, "abcdef0123456789abcdef0123456789"), AES_TRUE);
    EXPECT_EQ(makeKey(&upper, AES_ENCRYPT, 128, "ABCDEF0123456789ABCDEF0123456789"), AES_TRUE);
    EXPECT_EQ(hex_of_bytes(lower.schedule, sizeof lower.schedule),
              hex_of_bytes(upper.schedule, sizeof upper.schedule));
}

TEST(makeKey, leaves_the_key_unset_at_bad_material) {
    for (const char *material : {"", "2b7e151628aed2a6abf7158809cf4f3", "2b7e151628aed2a6abf7158809cf4f3g",
                                 "/b7e151628aed2a6abf7158809cf4f3c", "2b7e151628aed2a6:bf7158809cf4f3c",
                                 "2b7e151628aed2a6@bf7158809cf4f3c", "2b7e151628aed2a6Gbf7158809cf4f3c",
                                 "2b7e151628aed2a6`bf7158809cf4f3c", " 2b7e151628aed2a6abf7158809cf4f3"}) {
        aes_key key = aes_pair(KEY).encrypt;
        EXPECT_EQ(makeKey(&key, AES_ENCRYPT, 128, material), AES_BAD_KEY_MAT) << material;
        EXPECT_FALSE(key.ready);
    }
}

TEST(makeKey, refuses_absent_material_and_absent_key) {
    aes_key key;
    EXPECT_EQ(makeKey(&key, AES_ENCRYPT, 128, nullptr), AES_BAD_KEY_MAT);
    EXPECT_EQ(makeKey(nullptr, AES_ENCRYPT, 128, KEY), AES_BAD_KEY_INSTANCE);
}

TEST(makeKey, knows_128_bits_alone) {
    aes_key key;
    EXPECT_EQ(makeKey(&key, AES_ENCRYPT, 192, KEY), AES_BAD_KEY_MAT);
    EXPECT_FALSE(key.ready);
}

TEST(makeKey, refuses_an_unknown_direction) {
    aes_key key;
    EXPECT_EQ(makeKey(&key, 2, 128, KEY), AES_BAD_KEY_DIR);
    EXPECT_FALSE(key.ready);
}

TEST(cipherInit, knows_electronic_codebook_alone) {
    aes_pair aes(KEY);
    EXPECT_EQ(cipherInit(&aes.cipher, 2, nullptr), AES_BAD_CIPHER_MODE);
    unsigned char block[16] = {};
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.encrypt, block, 128, block), AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockDecrypt(&aes.cipher, &aes.decrypt, block, 128, block), AES_BAD_CIPHER_STATE);
    EXPECT_EQ(blockEncrypt(nullptr, &aes.encrypt, block, 128, block), AES_BAD_CIPHER_STATE);
}

TEST(blockEncrypt, refuses_an_unset_key_and_touches_nothing) {
    aes_pair aes(KEY);
    aes_key unset = {};
    std::string block(16, 'x');
    EXPECT_EQ(blockEncrypt(&aes.cipher, &unset, block.data(), 128, block.data()), AES_BAD_KEY_INSTANCE);
    EXPECT_EQ(blockDecrypt(&aes.cipher, &unset, block.data(), 128, block.data()), AES_BAD_KEY_INSTANCE);
    EXPECT_EQ(blockEncrypt(&aes.cipher, nullptr, block.data(), 128, block.data()), AES_BAD_KEY_INSTANCE);
    EXPECT_EQ(block, std::string(16, 'x'));
}

TEST(blockEncrypt, refuses_a_key_of_the_other_direction) {
    aes_pair aes(KEY);
    unsigned char block[16] = {};
    EXPECT_EQ(blockEncrypt(&aes.cipher, &aes.decrypt, block, 128, block), AES_BAD_KEY_DIR);
    EXPECT_EQ(blockDecrypt(&aes.cipher, &aes.encrypt, block, 128, block), AES_BAD_KEY_DIR);
}
