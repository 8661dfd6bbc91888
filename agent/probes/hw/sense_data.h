// The sense data that a SCSI command leaves, in its fixed and its descriptor format (SPC-4, 4.5), and the
// registers of an ATA drive in it (SAT-3, 12.2.5 and 12.2.6):
//
//                 fixed (0x70, 0x71)      descriptors (0x72, 0x73)     descriptor of type 9, from its start
//     key         byte 2, bits 0-3        byte 1, bits 0-3
//     ASC, ASCQ   bytes 12, 13            bytes 2, 3
//     error       3                                                    3
//     count       6                                                    5
//     status      4                                                    13
//     registers   with 0x00, 0x1D         from byte 8 on, each with its type, the length behind these two
//     are there                           bytes, and what it holds
#pragma once

#include <cstdint>

enum : uint8_t {
    SENSE_NONE = 0,
    SENSE_RECOVERED = 1,
    SENSE_ILLEGAL_REQUEST = 5,
};

struct sense_facts {
    bool known; // a format that can be read
    uint8_t key;
    uint8_t asc;
    uint8_t ascq;
    bool has_registers;
    uint8_t ata_error;
    uint8_t ata_count;
    uint8_t ata_status;
};

void decode_sense(const uint8_t *sense, uint32_t length, sense_facts *out);
