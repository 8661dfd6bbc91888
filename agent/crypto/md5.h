// The MD5 digest (RFC 1321).
#pragma once

#include <cstddef>
#include <cstdint>

struct md5_state {
    uint32_t words[4];
    uint64_t length; // bytes so far
    unsigned char block[64];
};

inline constexpr size_t MD5_SIZE = 16;

void md5_init(md5_state *state);
void md5_update(md5_state *state, const void *bytes, size_t length);

// Writes the digest and clears the state.
void md5_final(md5_state *state, unsigned char out[MD5_SIZE]);
