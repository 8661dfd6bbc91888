// The platform's layouts of the two SCSI controls, byte for byte. All numbers are little-endian.
//
// What an adapter knows about its devices, SCSI_ADAPTER_BUS_INFO:
//
//     0       number of buses
//     4 + 8n  a bus, SCSI_BUS_DATA: number of units, its own address on the bus, 2 of filling, and 4 with the
//             offset of the first entry of its devices, 0 for none
//
// An entry, SCSI_INQUIRY_DATA, whose length is that of its inquiry data and 12:
//
//     0   bus        4   length of the inquiry data
//     1   target     8   offset of the bus's next entry, 0 for none
//     2   LUN        12  inquiry data
//     3   whether a class driver has claimed the device
//
// A command, SCSI_PASS_THROUGH of a 64-bit host:
//
//     0  2  length of this, 56     7   1  length of the sense data     20  4  filling
//     2  1  SCSI status            8   1  direction, 1 for in          24  8  offset of the data
//     3  1  bus                    9   3  filling                      32  4  offset of the sense data
//     4  1  target                 12  4  length of the data           36  16 command block
//     5  1  LUN                    16  4  time-out in seconds          52  4  filling
//     6  1  length of the block
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t INQUIRY_TABLE_SIZE = 2048;
inline constexpr uint32_t BUS_TABLE_OFFSET = 4;
inline constexpr uint32_t BUS_ENTRY_SIZE = 8;
inline constexpr uint32_t BUS_ENTRY_FIRST_OFFSET = 4;
inline constexpr uint32_t DEVICE_ENTRY_SIZE = 12; // without its inquiry data
inline constexpr uint32_t DEVICE_ENTRY_NEXT_OFFSET = 8;

inline constexpr uint32_t PASS_THROUGH_SIZE = 56;
inline constexpr uint32_t PASS_THROUGH_STATUS_OFFSET = 2;
inline constexpr uint32_t PASS_THROUGH_TRANSFER_OFFSET = 12;
inline constexpr uint32_t PASS_THROUGH_CDB_OFFSET = 36;
inline constexpr uint32_t SCSI_CDB_LIMIT = 16;

// ---- the table of an adapter's devices

struct scsi_bus_entry {
    uint32_t first_offset; // 0 for none
};

struct scsi_device_entry {
    uint8_t bus;
    uint8_t target;
    uint8_t lun;
    bool claimed;
    uint32_t next_offset; // 0 for none
};

uint8_t decode_bus_count(const uint8_t *table);
// Bus `index` of a table of `size` bytes; without entries where it is not in the table.
scsi_bus_entry decode_bus(const uint8_t *table, uint32_t size, uint32_t index);
// The entry at `offset`. False where it does not lie within the `size` bytes.
bool decode_device(const uint8_t *table, uint32_t size, uint32_t offset, scsi_device_entry *out);

struct scsi_unit {
    uint8_t bus;
    uint8_t target;
    uint8_t lun;
    bool claimed;
};

// Writes a table of INQUIRY_TABLE_SIZE bytes with these units, which stand in the order of their buses,
// without inquiry data. Returns how many of them fitted.
uint32_t encode_inquiry_table(const scsi_unit *units, uint32_t count, uint8_t *table);

// ---- a command

struct scsi_pass_through {
    uint8_t bus;
    uint8_t target;
    uint8_t lun;
    uint8_t cdb_length;
    bool data_in;
    uint32_t transfer_length;
    uint32_t timeout_s;
    uint32_t data_offset;
    uint32_t sense_offset;
    uint8_t cdb[SCSI_CDB_LIMIT];
};

void encode_pass_through(const scsi_pass_through &command, uint8_t *block);
// False where the block of `size` bytes holds no such command, or lengths and offsets that lie outside of
// `buffer_size` bytes.
bool decode_pass_through(const uint8_t *block, uint32_t size, uint32_t buffer_size, scsi_pass_through *out);
// What the answer says.
uint8_t pass_through_status(const uint8_t *block);
void set_pass_through_answer(uint8_t *block, uint8_t status, uint32_t transfer_length);
