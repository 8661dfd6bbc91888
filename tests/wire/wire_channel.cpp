#include "wire/wire_channel.h"

#include "crypto/md5.h"

#include <algorithm>
#include <utility>

namespace wire {

static std::string read_below(io *below, size_t count) {
    std::string bytes(count, '\0');
    if (auto *failure = below->read(below, bytes.data(), count)) throw agent_gone{failure};
    return bytes;
}

std::string channel::read(size_t count) {
    if (!keys) return read_below(below, count);
    while (plain.size() < count) {
        std::string block = read_below(below, AES_BLOCK);
        aes_cipher cipher = {.mode = AES_MODE_ECB};
        blockDecrypt(&cipher, &keys->read, block.data(), AES_BLOCK * 8, block.data());
        plain += block;
    }
    std::string bytes = plain.substr(0, count);
    plain.erase(0, count);
    return bytes;
}

void channel::write_raw(const std::string &bytes) {
    if (bytes.empty()) return;
    const char *failure = below->write(below, bytes.data(), bytes.size());
    if (failure == nullptr) failure = below->flush(below);
    if (failure != nullptr) throw agent_gone{failure};
}

void channel::write(const std::string &message) {
    if (!keys) return write_raw(message);
    std::string blocks = message;
    blocks.resize((message.size() + AES_BLOCK - 1) / AES_BLOCK * AES_BLOCK, FILLER);
    aes_cipher cipher = {.mode = AES_MODE_ECB};
    int bits = static_cast<int>(blocks.size() * 8);
    blockEncrypt(&cipher, &keys->write, blocks.data(), bits, blocks.data());
    write_raw(blocks);
}

std::string channel::rest_of_block() {
    return std::exchange(plain, "");
}

void channel::encipher(const std::string &hex_key) {
    keys.emplace();
    makeKey(&keys->write, AES_ENCRYPT, 128, hex_key.c_str());
    makeKey(&keys->read, AES_DECRYPT, 128, hex_key.c_str());
}

std::string trimmed(const std::string &magnitude) {
    size_t start = magnitude.find_first_not_of('\0');
    return start == std::string::npos ? "" : magnitude.substr(start);
}

std::string decimal(const std::string &magnitude) {
    std::string left = trimmed(magnitude);
    std::string digits;
    while (!left.empty()) {
        unsigned remainder = 0;
        for (char &digit : left) {
            unsigned value = remainder * 256 + static_cast<unsigned char>(digit);
            digit = static_cast<char>(value / 10);
            remainder = value % 10;
        }
        digits += static_cast<char>('0' + remainder);
        left = trimmed(left);
    }
    std::reverse(digits.begin(), digits.end());
    return digits.empty() ? "0" : digits;
}

std::string magnitude_of(uint64_t value) {
    std::string bytes;
    for (; value != 0; value >>= 8)
        bytes.insert(bytes.begin(), static_cast<char>(value & 0xFF));
    return bytes;
}

uint64_t value_of(const std::string &magnitude) {
    uint64_t value = 0;
    for (char byte : magnitude)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

static uint64_t multiply(uint64_t a, uint64_t b, uint64_t modulus) {
    using wide = unsigned __int128;
    return static_cast<uint64_t>(static_cast<wide>(a) * b % modulus);
}

std::string power(const std::string &base, const std::string &exponent, const std::string &modulus) {
    uint64_t m = value_of(modulus);
    uint64_t b = value_of(base) % m;
    uint64_t result = 1 % m;
    for (char byte : exponent) {
        for (int bit = 7; bit >= 0; bit--) {
            result = multiply(result, result, m);
            if ((static_cast<unsigned char>(byte) >> bit & 1) != 0) result = multiply(result, b, m);
        }
    }
    return magnitude_of(result);
}

std::string md5_of(const std::string &bytes) {
    md5_state state;
    unsigned char digest[MD5_SIZE];
    md5_init(&state);
    md5_update(&state, bytes.data(), bytes.size());
    md5_final(&state, digest);
    return {reinterpret_cast<char *>(digest), MD5_SIZE};
}

std::string hex_of(const std::string &bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

} // namespace wire
