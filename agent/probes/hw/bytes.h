// Numbers in the bytes of foreign layouts.
#pragma once

#include <cstdint>

inline uint16_t little_16(const uint8_t *at) {
    return static_cast<uint16_t>(at[0] | at[1] << 8);
}

inline uint32_t little_32(const uint8_t *at) {
    return static_cast<uint32_t>(little_16(at)) | static_cast<uint32_t>(little_16(at + 2)) << 16;
}

inline void put_little_16(uint8_t *at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

inline void put_little_32(uint8_t *at, uint32_t value) {
    put_little_16(at, static_cast<uint16_t>(value));
    put_little_16(at + 2, static_cast<uint16_t>(value >> 16));
}

inline void put_big_16(uint8_t *at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}
