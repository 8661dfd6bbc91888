#include "crypto/cipher_stream.h"

#include "crypto/aes.h"
#include "platform/heap.h"

#include <algorithm>
#include <cstring>

static constexpr int BLOCK_BITS = AES_BLOCK * 8;
static constexpr int KEY_BITS = 128;

namespace {

struct cipher_state {
    io *below;
    aes_key write_key;
    aes_key read_key;
    aes_cipher write_cipher;
    aes_cipher read_cipher;
    unsigned char write_block[AES_BLOCK];
    unsigned char read_block[AES_BLOCK];
    uint64_t write_fill; // bytes in write_block, below 16 between the calls
    uint64_t read_pos;   // the next unread byte of read_block; 16 when all are read
};

} // namespace

static cipher_state *state_of(io *stream) {
    return static_cast<cipher_state *>(stream->state);
}

static const char *read_block(cipher_state *state) {
    unsigned char *block = state->read_block;
    if (auto *failure = state->below->read(state->below, block, AES_BLOCK)) return failure;
    blockDecrypt(&state->read_cipher, &state->read_key, block, BLOCK_BITS, block);
    state->read_pos = 0;
    return nullptr;
}

static const char *read_bytes(io *stream, void *buffer, size_t count) {
    cipher_state *state = state_of(stream);
    auto *to = static_cast<unsigned char *>(buffer);
    while (count > 0) {
        if (state->read_pos == AES_BLOCK)
            if (auto *failure = read_block(state)) return failure;
        size_t taken = std::min<size_t>(count, AES_BLOCK - state->read_pos);
        memcpy(to, state->read_block + state->read_pos, taken);
        state->read_pos += taken;
        to += taken;
        count -= taken;
    }
    return nullptr;
}

static const char *write_block(cipher_state *state) {
    unsigned char *block = state->write_block;
    blockEncrypt(&state->write_cipher, &state->write_key, block, BLOCK_BITS, block);
    if (auto *failure = state->below->write(state->below, block, AES_BLOCK)) return failure;
    state->write_fill = 0;
    return nullptr;
}

static const char *write_bytes(io *stream, const void *buffer, size_t count) {
    cipher_state *state = state_of(stream);
    auto *from = static_cast<const unsigned char *>(buffer);
    while (count > 0) {
        size_t taken = std::min<size_t>(count, AES_BLOCK - state->write_fill);
        memcpy(state->write_block + state->write_fill, from, taken);
        state->write_fill += taken;
        from += taken;
        count -= taken;
        if (state->write_fill == AES_BLOCK)
            if (auto *failure = write_block(state)) return failure;
    }
    return nullptr;
}

static const char *flush(io *stream) {
    cipher_state *state = state_of(stream);
    if (state->write_fill != 0) {
        memset(state->write_block + state->write_fill, CIPHER_FILLER, AES_BLOCK - state->write_fill);
        if (auto *failure = write_block(state)) return failure;
    }
    return state->below->flush(state->below);
}

static bool wait_readable(io *stream, int32_t seconds) {
    io *below = state_of(stream)->below;
    return below->wait_readable(below, seconds);
}

static void close_stream(io *stream) {
    io *below = state_of(stream)->below;
    heap_free(stream->state);
    below->close(below);
    heap_free(stream);
}

// What the key routines return is not looked at: a stream without a key shows at the first read.
static void prepare(cipher_state *state, const char *key_text) {
    makeKey(&state->write_key, AES_ENCRYPT, KEY_BITS, key_text);
    makeKey(&state->read_key, AES_DECRYPT, KEY_BITS, key_text);
    cipherInit(&state->write_cipher, AES_MODE_ECB, nullptr);
    cipherInit(&state->read_cipher, AES_MODE_ECB, nullptr);
}

io *cipher_stream_new(io *below, const char *key_text) {
    guard<io, heap_free> stream(heap_new<io>());
    auto *state = stream != nullptr ? heap_new<cipher_state>() : nullptr;
    if (state == nullptr) return nullptr;
    state->below = below;
    state->read_pos = AES_BLOCK;
    prepare(state, key_text);
    *stream = {.read = read_bytes,
               .write = write_bytes,
               .flush = flush,
               .wait_readable = wait_readable,
               .close = close_stream,
               .state = state};
    return stream.release();
}
