// An ATA command on its way to a drive behind a SCSI layer, and what comes back.
//
// The registers come from the command block of the SMART controls (bytes 4 to 10: features, sector count,
// sector number, cylinder low and high, drive and head, command). They travel in an ATA PASS-THROUGH block
// (SAT-3, 12.2.2 and 12.2.3):
//
//                 16 bytes    12 bytes
//     operation   0   0x85    0   0xA1
//     protocol    1           1          in bits 1-4: 3 without data, 4 for data in
//     flags       2           2          below
//     features    4           3
//     count       6           4
//     LBA         8, 10, 12   5, 6, 7    sector number, cylinder low, cylinder high
//     device      13          8
//     command     14          9
//
// Without data the flags ask for the registers as sense data (0x20); with data they say that it comes from
// the drive in blocks that the count tells (0x0E).
#pragma once

#include "probes/hw/kernel_ops.h"
#include "probes/hw/sense_data.h"

#include <cstdint>

struct ata_registers {
    uint8_t features;
    uint8_t count;
    uint8_t lba_low;
    uint8_t lba_mid;
    uint8_t lba_high;
    uint8_t device;
    uint8_t command;
};

enum ata_form : uint8_t { ATA_16_BYTES, ATA_12_BYTES };

// Of a command block of SMART_COMMAND_SIZE bytes.
void decode_command_block(const uint8_t *block, ata_registers *out);

// Puts the command into a request, all but its data and its time-out.
void encode_ata_command(const ata_registers &registers, ata_form form, bool data_in, sg_request *out);

enum ata_outcome {
    ATA_DONE,
    ATA_FAILED,  // the drive, or the way to it, has failed the command
    ATA_REFUSED, // the SCSI layer does not know this form of the block
};

// What an answered request says. `*out` is cleared where no sense data came with it.
ata_outcome judge_ata_answer(const sg_request &request, sense_facts *out);

inline constexpr ata_registers CHECK_POWER_MODE = {.command = 0xE5};

// Whether a drive sleeps, by the count that it has returned to CHECK POWER MODE (ACS-3, 7.3): 0x00 in
// standby, 0x01 in its second standby mode, 0x40 with the spindle down behind a cache.
bool is_standby(uint8_t count);
