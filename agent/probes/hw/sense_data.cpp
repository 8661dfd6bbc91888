#include "probes/hw/sense_data.h"

namespace {

enum : uint8_t {
    FIXED_CURRENT = 0x70,
    FIXED_DEFERRED = 0x71,
    DESCRIPTORS_CURRENT = 0x72,
    DESCRIPTORS_DEFERRED = 0x73,
};

constexpr uint32_t FIXED_LENGTH = 14;
constexpr uint32_t DESCRIPTORS_OFFSET = 8;
constexpr uint8_t ATA_RETURN_TYPE = 0x09;
constexpr uint32_t ATA_RETURN_LENGTH = 14;
constexpr uint8_t ATA_REGISTERS_ASC = 0x00;
constexpr uint8_t ATA_REGISTERS_ASCQ = 0x1D;

} // namespace

static void decode_fixed(const uint8_t *sense, sense_facts *out) {
    out->known = true;
    out->key = sense[2] & 0x0F;
    out->asc = sense[12];
    out->ascq = sense[13];
    out->has_registers = out->asc == ATA_REGISTERS_ASC && out->ascq == ATA_REGISTERS_ASCQ;
    if (!out->has_registers) return;
    out->ata_error = sense[3];
    out->ata_status = sense[4];
    out->ata_count = sense[6];
}

static void decode_descriptors(const uint8_t *sense, uint32_t length, sense_facts *out) {
    out->known = true;
    out->key = sense[1] & 0x0F;
    out->asc = sense[2];
    out->ascq = sense[3];
    for (uint32_t at = DESCRIPTORS_OFFSET; at + 2 <= length; at += 2U + sense[at + 1]) {
        const uint8_t *descriptor = sense + at;
        if (descriptor[0] != ATA_RETURN_TYPE || length - at < ATA_RETURN_LENGTH) continue;
        out->has_registers = true;
        out->ata_error = descriptor[3];
        out->ata_count = descriptor[5];
        out->ata_status = descriptor[13];
        return;
    }
}

void decode_sense(const uint8_t *sense, uint32_t length, sense_facts *out) {
    *out = {};
    if (length == 0) return;
    uint8_t format = sense[0] & 0x7F;
    if ((format == FIXED_CURRENT || format == FIXED_DEFERRED) && length >= FIXED_LENGTH)
        decode_fixed(sense, out);
    if ((format == DESCRIPTORS_CURRENT || format == DESCRIPTORS_DEFERRED) && length >= DESCRIPTORS_OFFSET)
        decode_descriptors(sense, length, out);
}
