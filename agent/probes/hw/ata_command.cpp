#include "probes/hw/ata_command.h"

#include <cstring>

namespace {

constexpr uint8_t PASS_THROUGH_16 = 0x85;
constexpr uint8_t PASS_THROUGH_12 = 0xA1;
constexpr uint8_t PROTOCOL_NO_DATA = 3U << 1;
constexpr uint8_t PROTOCOL_DATA_IN = 4U << 1;
constexpr uint8_t FLAGS_NO_DATA = 0x20;
constexpr uint8_t FLAGS_DATA_IN = 0x0E;

constexpr uint8_t STATUS_GOOD_BYTE = 0x00;
constexpr uint8_t STATUS_CHECK_CONDITION = 0x02;
constexpr uint16_t DRIVER_CODE = 0x0F;
constexpr uint16_t DRIVER_SENSE = 0x08;

constexpr uint8_t ATA_STATUS_ERROR = 1U << 0;
constexpr uint8_t ATA_STATUS_FAULT = 1U << 5;

} // namespace

void decode_command_block(const uint8_t *block, ata_registers *out) {
    *out = {.features = block[4],
            .count = block[5],
            .lba_low = block[6],
            .lba_mid = block[7],
            .lba_high = block[8],
            .device = block[9],
            .command = block[10]};
}

static void encode_16(const ata_registers &registers, uint8_t *cdb) {
    cdb[0] = PASS_THROUGH_16;
    cdb[4] = registers.features;
    cdb[6] = registers.count;
    cdb[8] = registers.lba_low;
    cdb[10] = registers.lba_mid;
    cdb[12] = registers.lba_high;
    cdb[13] = registers.device;
    cdb[14] = registers.command;
}

static void encode_12(const ata_registers &registers, uint8_t *cdb) {
    cdb[0] = PASS_THROUGH_12;
    cdb[3] = registers.features;
    cdb[4] = registers.count;
    cdb[5] = registers.lba_low;
    cdb[6] = registers.lba_mid;
    cdb[7] = registers.lba_high;
    cdb[8] = registers.device;
    cdb[9] = registers.command;
}

void encode_ata_command(const ata_registers &registers, ata_form form, bool data_in, sg_request *out) {
    memset(out->cdb, 0, sizeof out->cdb);
    if (form == ATA_16_BYTES)
        encode_16(registers, out->cdb);
    else
        encode_12(registers, out->cdb);
    out->cdb[1] = data_in ? PROTOCOL_DATA_IN : PROTOCOL_NO_DATA;
    out->cdb[2] = data_in ? FLAGS_DATA_IN : FLAGS_NO_DATA;
    out->cdb_length = form == ATA_16_BYTES ? 16 : 12;
}

static bool reached_drive(const sg_request &request) {
    uint16_t driver = request.driver_status & DRIVER_CODE;
    return request.host_status == 0 && (driver == 0 || driver == DRIVER_SENSE);
}

static ata_outcome judge_sense(const sense_facts &sense) {
    if (sense.has_registers)
        return (sense.ata_status & (ATA_STATUS_ERROR | ATA_STATUS_FAULT)) == 0 ? ATA_DONE : ATA_FAILED;
    if (sense.known && sense.key == SENSE_ILLEGAL_REQUEST) return ATA_REFUSED;
    return sense.known && (sense.key == SENSE_RECOVERED || sense.key == SENSE_NONE) ? ATA_DONE : ATA_FAILED;
}

ata_outcome judge_ata_answer(const sg_request &request, sense_facts *out) {
    *out = {};
    if (!reached_drive(request)) return ATA_FAILED;
    uint32_t length = request.sense_length < SENSE_LIMIT ? request.sense_length : SENSE_LIMIT;
    decode_sense(request.sense, length, out);
    if (request.status == STATUS_CHECK_CONDITION || out->has_registers) return judge_sense(*out);
    return request.status == STATUS_GOOD_BYTE ? ATA_DONE : ATA_FAILED;
}

bool is_standby(uint8_t count) {
    return count == 0x00 || count == 0x01 || count == 0x40;
}
