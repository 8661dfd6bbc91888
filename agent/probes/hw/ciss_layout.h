// The blocks of the legacy CISS requests, byte for byte: one block goes out as a request and comes back with
// the reply in it. All numbers are little-endian.
//
//     0   4  length of the header, 28          28     filling up to 38
//     4   8  signature "CPQCISS"               38  1  length of the command block, 10
//     12  4  time-out                          40  1  operation, 0x26 for a BMIC read
//     16  4  control code, 2                   41  1  logical volume
//     20  4  return code, 0 for success        46  1  BMIC command
//     24  4  length of what follows           148     reply
//
// Replies, from the start of the block:
//
//     Identify Controller  148  1  number of volumes    153  4  firmware revision in characters
//     Identify Volume      148  2  bytes of a block     150  4  number of blocks
//     Volume Status        148  1  state
#pragma once

#include <cstdint>

enum ciss_request { CISS_IDENTIFY_CONTROLLER, CISS_IDENTIFY_VOLUME, CISS_VOLUME_STATUS };

inline constexpr uint32_t CISS_BLOCK_LIMIT = 676; // of the largest request
inline constexpr uint32_t CISS_HEADER_LENGTH = 28;
inline constexpr uint32_t CISS_RETURN_CODE_OFFSET = 20;
inline constexpr uint32_t CISS_COMMAND_OFFSET = 40;
inline constexpr uint32_t CISS_COMMAND_LENGTH_OFFSET = 38;
inline constexpr uint32_t CISS_REPLY_OFFSET = 148;

struct ciss_controller {
    uint8_t volumes;
    char firmware[4]; // a point for what cannot be printed
};

struct ciss_volume {
    uint16_t block_size; // bytes
    uint32_t blocks;
};

// Writes the request into a block of CISS_BLOCK_LIMIT bytes and returns how many of them it takes.
uint32_t encode_ciss_request(ciss_request request, uint8_t volume, uint8_t *block);

// Whether the block asks for a volume's identity.
bool is_ciss_identify_volume(const uint8_t *block);

uint32_t ciss_return_code(const uint8_t *block);
void set_ciss_return_code(uint8_t *block, uint32_t code);

void decode_ciss_controller(const uint8_t *block, ciss_controller *out);
void decode_ciss_volume(const uint8_t *block, ciss_volume *out);
uint8_t decode_ciss_state(const uint8_t *block);

// The words for a volume's state.
const char *ciss_state_text(uint8_t state);
