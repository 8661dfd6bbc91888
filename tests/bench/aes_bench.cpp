// AES in electronic codebook mode, the agent's and that of libcrypto: a block, as the cipher stream asks for
// it, and a KiB at once.

#include "crypto/aes.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <memory>
#include <openssl/evp.h>

namespace {

constexpr const char *KEY_TEXT = "2b7e151628aed2a6abf7158809cf4f3c";
constexpr unsigned char KEY[AES_BLOCK] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                                          0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
constexpr size_t LARGEST = 1024;

struct free_context {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};
using context_guard = std::unique_ptr<EVP_CIPHER_CTX, free_context>;

struct own_aes {
    explicit own_aes(int way) : direction(way) {
        makeKey(&key, direction, 128, KEY_TEXT);
        cipherInit(&cipher, AES_MODE_ECB, nullptr);
    }
    void run(const unsigned char *in, size_t size, unsigned char *out) {
        int bits = static_cast<int>(size * 8);
        if (direction == AES_ENCRYPT)
            blockEncrypt(&cipher, &key, in, bits, out);
        else
            blockDecrypt(&cipher, &key, in, bits, out);
    }
    int direction;
    aes_key key;
    aes_cipher cipher;
};

struct library_aes {
    explicit library_aes(int way) : context(EVP_CIPHER_CTX_new()) {
        EVP_CipherInit_ex(context.get(), EVP_aes_128_ecb(), nullptr, KEY, nullptr,
                          way == AES_ENCRYPT ? 1 : 0);
        EVP_CIPHER_CTX_set_padding(context.get(), 0);
    }
    void run(const unsigned char *in, size_t size, unsigned char *out) {
        int written = 0;
        EVP_CipherUpdate(context.get(), out, &written, in, static_cast<int>(size));
    }
    context_guard context;
};

// Both must have come to the same bytes before either is measured.
bool agree(int direction) {
    unsigned char in[LARGEST], own[LARGEST], theirs[LARGEST] = {};
    for (size_t i = 0; i < LARGEST; i++)
        in[i] = static_cast<unsigned char>(i * 31 + i / 256);
    own_aes(direction).run(in, LARGEST, own);
    library_aes(direction).run(in, LARGEST, theirs);
    return memcmp(own, theirs, LARGEST) == 0;
}

template <class Aes>
void run_aes(benchmark::State &state, int direction, size_t size) {
    unsigned char buffer[LARGEST] = {};
    Aes aes(direction);
    if (!agree(direction)) return state.SkipWithError("the two differ");
    for (auto _ : state) {
        aes.run(buffer, size, buffer);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void own(benchmark::State &state, int direction, size_t size) {
    run_aes<own_aes>(state, direction, size);
}

void library(benchmark::State &state, int direction, size_t size) {
    run_aes<library_aes>(state, direction, size);
}

void make_key(benchmark::State &state) {
    aes_key key;
    for (auto _ : state) {
        makeKey(&key, AES_ENCRYPT, 128, KEY_TEXT);
        benchmark::DoNotOptimize(key);
    }
}

} // namespace

BENCHMARK_CAPTURE(own, encrypt_16, AES_ENCRYPT, 16)->Name("aes_encrypt_16/ours");
BENCHMARK_CAPTURE(library, encrypt_16, AES_ENCRYPT, 16)->Name("aes_encrypt_16/libcrypto");
BENCHMARK_CAPTURE(own, encrypt_1024, AES_ENCRYPT, 1024)->Name("aes_encrypt_1024/ours");
BENCHMARK_CAPTURE(library, encrypt_1024, AES_ENCRYPT, 1024)->Name("aes_encrypt_1024/libcrypto");
BENCHMARK_CAPTURE(own, decrypt_16, AES_DECRYPT, 16)->Name("aes_decrypt_16/ours");
BENCHMARK_CAPTURE(library, decrypt_16, AES_DECRYPT, 16)->Name("aes_decrypt_16/libcrypto");
BENCHMARK_CAPTURE(own, decrypt_1024, AES_DECRYPT, 1024)->Name("aes_decrypt_1024/ours");
BENCHMARK_CAPTURE(library, decrypt_1024, AES_DECRYPT, 1024)->Name("aes_decrypt_1024/libcrypto");
BENCHMARK(make_key)->Name("aes_make_key/ours");
