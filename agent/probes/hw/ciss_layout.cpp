#include "probes/hw/ciss_layout.h"

#include "probes/hw/bytes.h"

#include <cstring>

namespace {

constexpr char SIGNATURE[8] = "CPQCISS";
constexpr uint32_t CONTROL_CODE = 2;
constexpr uint8_t COMMAND_LENGTH = 10;
constexpr uint8_t BMIC_READ = 0x26;

enum block_field : uint32_t {
    FIELD_HEADER_LENGTH = 0,
    FIELD_SIGNATURE = 4,
    FIELD_TIME_OUT = 12,
    FIELD_CONTROL_CODE = 16,
    FIELD_LENGTH = 24,
    FIELD_VOLUME = 41,
    FIELD_BMIC_COMMAND = 46,
    FIELD_FIRMWARE = 153,
    FIELD_BLOCKS = 150,
};

struct request_row {
    uint32_t time_out;
    uint32_t length; // of what follows the header
    uint8_t bmic_command;
};

// By ciss_request.
constexpr request_row REQUESTS[] = {
    {0, 648, 0x11},
    {0xFFFFFFFF, 646, 0x10},
    {0xFFFFFFFF, 646, 0x12},
};

// By state.
constexpr const char *STATES[] = {
    "Logical device OK",
    "Logical device failing",
    "Logical device not configured",
    "Logical device in interim recovery",
    "Logical device ready for recovery",
    "Logical device recovering",
    "Wrong physical device replaced",
    "Improperly connected physical device",
    "Hardware is overheating",
    "Hardware has overheated",
    "Logical device is expanding",
    "Logical device not available",
    "Logical device queued for expansion",
};

} // namespace

uint32_t encode_ciss_request(ciss_request request, uint8_t volume, uint8_t *block) {
    const request_row &row = REQUESTS[request];
    memset(block, 0, CISS_BLOCK_LIMIT);
    put_little_32(block + FIELD_HEADER_LENGTH, CISS_HEADER_LENGTH);
    memcpy(block + FIELD_SIGNATURE, SIGNATURE, sizeof SIGNATURE);
    put_little_32(block + FIELD_TIME_OUT, row.time_out);
    put_little_32(block + FIELD_CONTROL_CODE, CONTROL_CODE);
    put_little_32(block + FIELD_LENGTH, row.length);
    block[CISS_COMMAND_LENGTH_OFFSET] = COMMAND_LENGTH;
    block[CISS_COMMAND_OFFSET] = BMIC_READ;
    block[FIELD_VOLUME] = volume;
    block[FIELD_BMIC_COMMAND] = row.bmic_command;
    return CISS_HEADER_LENGTH + row.length;
}

bool is_ciss_identify_volume(const uint8_t *block) {
    return block[CISS_COMMAND_OFFSET] == BMIC_READ &&
           block[FIELD_BMIC_COMMAND] == REQUESTS[CISS_IDENTIFY_VOLUME].bmic_command;
}

uint32_t ciss_return_code(const uint8_t *block) {
    return little_32(block + CISS_RETURN_CODE_OFFSET);
}

void set_ciss_return_code(uint8_t *block, uint32_t code) {
    put_little_32(block + CISS_RETURN_CODE_OFFSET, code);
}

static char printable(uint8_t byte) {
    return byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
}

void decode_ciss_controller(const uint8_t *block, ciss_controller *out) {
    out->volumes = block[CISS_REPLY_OFFSET];
    for (uint32_t i = 0; i < sizeof out->firmware; i++)
        out->firmware[i] = printable(block[FIELD_FIRMWARE + i]);
}

void decode_ciss_volume(const uint8_t *block, ciss_volume *out) {
    *out = {.block_size = little_16(block + CISS_REPLY_OFFSET), .blocks = little_32(block + FIELD_BLOCKS)};
}

uint8_t decode_ciss_state(const uint8_t *block) {
    return block[CISS_REPLY_OFFSET];
}

const char *ciss_state_text(uint8_t state) {
    return state < sizeof STATES / sizeof *STATES ? STATES[state] : "Unknown state";
}
