#include "probes/hw/scsi_layout.h"

#include "probes/hw/bytes.h"

#include <cstring>

namespace {

constexpr uint32_t MAX_BUSES = 255;

// Where the fields of SCSI_PASS_THROUGH stand.
enum pass_through_field : uint32_t {
    FIELD_LENGTH = 0,
    FIELD_PATH = 3,
    FIELD_TARGET = 4,
    FIELD_LUN = 5,
    FIELD_CDB_LENGTH = 6,
    FIELD_DATA_IN = 8,
    FIELD_TIME_OUT = 16,
    FIELD_DATA_OFFSET = 24,
    FIELD_SENSE_OFFSET = 32,
};

} // namespace

// ---- the table of an adapter's devices

uint8_t decode_bus_count(const uint8_t *table) {
    return table[0];
}

scsi_bus_entry decode_bus(const uint8_t *table, uint32_t size, uint32_t index) {
    if (index >= table[0] || index >= MAX_BUSES) return {};
    uint32_t offset = BUS_TABLE_OFFSET + index * BUS_ENTRY_SIZE;
    if (offset + BUS_ENTRY_SIZE > size) return {};
    return {.first_offset = little_32(table + offset + BUS_ENTRY_FIRST_OFFSET)};
}

bool decode_device(const uint8_t *table, uint32_t size, uint32_t offset, scsi_device_entry *out) {
    if (size < DEVICE_ENTRY_SIZE || offset > size - DEVICE_ENTRY_SIZE) return false;
    const uint8_t *entry = table + offset;
    *out = {.bus = entry[0],
            .target = entry[1],
            .lun = entry[2],
            .claimed = entry[3] != 0,
            .next_offset = little_32(entry + DEVICE_ENTRY_NEXT_OFFSET)};
    return true;
}

static uint32_t bus_count_of(const scsi_unit *units, uint32_t count) {
    uint32_t buses = 0;
    for (uint32_t i = 0; i < count; i++)
        if (units[i].bus < MAX_BUSES && units[i].bus >= buses) buses = units[i].bus + 1U;
    return buses;
}

static void put_unit(const scsi_unit &unit, uint8_t *entry) {
    entry[0] = unit.bus;
    entry[1] = unit.target;
    entry[2] = unit.lun;
    entry[3] = unit.claimed ? 1 : 0;
}

uint32_t encode_inquiry_table(const scsi_unit *units, uint32_t count, uint8_t *table) {
    memset(table, 0, INQUIRY_TABLE_SIZE);
    table[0] = static_cast<uint8_t>(bus_count_of(units, count));
    uint32_t offset = BUS_TABLE_OFFSET + table[0] * BUS_ENTRY_SIZE;
    uint32_t written = 0;
    uint8_t *link = nullptr; // where the offset of the next unit of the same bus goes
    for (; written < count; written++) {
        const scsi_unit &unit = units[written];
        if (unit.bus >= MAX_BUSES || offset + DEVICE_ENTRY_SIZE > INQUIRY_TABLE_SIZE) break;
        uint8_t *bus = table + BUS_TABLE_OFFSET + unit.bus * BUS_ENTRY_SIZE;
        if (bus[0]++ == 0) link = bus + BUS_ENTRY_FIRST_OFFSET;
        put_little_32(link, offset);
        put_unit(unit, table + offset);
        link = table + offset + DEVICE_ENTRY_NEXT_OFFSET;
        offset += DEVICE_ENTRY_SIZE;
    }
    return written;
}

// ---- a command

void encode_pass_through(const scsi_pass_through &command, uint8_t *block) {
    memset(block, 0, PASS_THROUGH_SIZE);
    put_little_16(block + FIELD_LENGTH, PASS_THROUGH_SIZE);
    block[FIELD_PATH] = command.bus;
    block[FIELD_TARGET] = command.target;
    block[FIELD_LUN] = command.lun;
    block[FIELD_CDB_LENGTH] = command.cdb_length;
    block[FIELD_DATA_IN] = command.data_in ? 1 : 0;
    put_little_32(block + PASS_THROUGH_TRANSFER_OFFSET, command.transfer_length);
    put_little_32(block + FIELD_TIME_OUT, command.timeout_s);
    put_little_32(block + FIELD_DATA_OFFSET, command.data_offset);
    put_little_32(block + FIELD_SENSE_OFFSET, command.sense_offset);
    memcpy(block + PASS_THROUGH_CDB_OFFSET, command.cdb, SCSI_CDB_LIMIT);
}

bool decode_pass_through(const uint8_t *block, uint32_t size, uint32_t buffer_size, scsi_pass_through *out) {
    if (size < PASS_THROUGH_SIZE || little_16(block + FIELD_LENGTH) != PASS_THROUGH_SIZE) return false;
    *out = {.bus = block[FIELD_PATH],
            .target = block[FIELD_TARGET],
            .lun = block[FIELD_LUN],
            .cdb_length = block[FIELD_CDB_LENGTH],
            .data_in = block[FIELD_DATA_IN] == 1,
            .transfer_length = little_32(block + PASS_THROUGH_TRANSFER_OFFSET),
            .timeout_s = little_32(block + FIELD_TIME_OUT),
            .data_offset = little_32(block + FIELD_DATA_OFFSET),
            .sense_offset = little_32(block + FIELD_SENSE_OFFSET)};
    memcpy(out->cdb, block + PASS_THROUGH_CDB_OFFSET, SCSI_CDB_LIMIT);
    bool block_fits = out->cdb_length > 0 && out->cdb_length <= SCSI_CDB_LIMIT;
    bool data_fits = out->data_offset >= PASS_THROUGH_SIZE && out->data_offset <= buffer_size &&
                     out->transfer_length <= buffer_size - out->data_offset;
    return block_fits && data_fits;
}

uint8_t pass_through_status(const uint8_t *block) {
    return block[PASS_THROUGH_STATUS_OFFSET];
}

void set_pass_through_answer(uint8_t *block, uint8_t status, uint32_t transfer_length) {
    block[PASS_THROUGH_STATUS_OFFSET] = status;
    put_little_32(block + PASS_THROUGH_TRANSFER_OFFSET, transfer_length);
}
