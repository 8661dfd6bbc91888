// One connection as the server has it: a byte stream that becomes enciphered on the way.
#pragma once

#include "crypto/aes.h"
#include "platform/io.h"

#include <optional>
#include <string>

namespace wire {

// The agent has closed the connection, or it broke.
struct agent_gone {
    std::string reason;
};

inline constexpr char FILLER = 0x19;

struct channel {
    io *below;

    std::string read(size_t count);
    // Sends a whole message, filled up to a block where the channel is enciphered.
    void write(const std::string &message);
    // Sends bytes as they are.
    void write_raw(const std::string &bytes);
    // What a message leaves of its last block: nothing but fillers, unless the agent is wrong.
    std::string rest_of_block();
    void encipher(const std::string &hex_key);
    bool enciphered() const { return keys.has_value(); }

    struct key_pair {
        aes_key write;
        aes_key read;
    };
    std::optional<key_pair> keys;
    std::string plain; // deciphered and not read yet
};

// A big-endian magnitude: without leading zeros, and its decimal text.
std::string trimmed(const std::string &magnitude);
std::string decimal(const std::string &magnitude);
std::string magnitude_of(uint64_t value);
uint64_t value_of(const std::string &magnitude); // of at most 8 bytes

// base to the power exponent modulo modulus, of numbers of at most 8 bytes; the exponent may be longer.
std::string power(const std::string &base, const std::string &exponent, const std::string &modulus);

std::string md5_of(const std::string &bytes); // 16 bytes
std::string hex_of(const std::string &bytes);

} // namespace wire
