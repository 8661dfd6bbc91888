#include "probes/hw/sensor_record.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"

#include <algorithm>
#include <cstring>

sensor_record *sensor_records;

// IPMI 2.0, clauses 43.1 (full) and 43.2 (compact). Bytes are numbered from 0, as everywhere here, and from 1
// there. What nobody here asks for is left out.
//
//   byte  full                       compact
//   0-1   record id                  the same
//   2     SDR version                the same
//   3     record type, 1             2
//   4     bytes that follow          the same
//   6     1-0 LUN                    the same
//   7     sensor number              the same
//   8     entity id                  the same
//   9     7 is a container,          the same
//         6-0 entity instance
//   11    7 ignore if absent         the same
//   12    sensor type                the same
//   13    event and reading type     the same
//   20    7-6 format, 5-3 rate,      the same, but there is no format
//         2-1 modifier, 0 percent
//   21    base unit                  the same
//   22    modifier unit              the same
//   23    6-0 linearization          7-6 direction
//   24    M, low 8 bits
//   25    7-6 M, high bits
//   26    B, low 8 bits
//   27    7-6 B, high bits
//   28    1-0 direction
//   29    7-4 R exponent,
//         3-0 B exponent
//   31                               id text, kind and length
//   47    id text, kind and length
namespace {

constexpr size_t LENGTH = 4;
constexpr size_t FULL_LENGTH = 49;
constexpr size_t COMPACT_LENGTH = 33;
constexpr size_t FULL_TEXT = 47;
constexpr size_t COMPACT_TEXT = 31;

// Kinds of the id text: IPMI 2.0, clause 43.15. Only 8-bit text is read.
constexpr const char *UNREAD_KINDS[] = {"[UNICODE]", "[BCD-plus]", "[6-bit packed ASCII]"};
constexpr uint8_t RESERVED_LENGTH = 31;
constexpr size_t TEXT_LIMIT = 16;

} // namespace

// The number of `bits` bits in two's complement.
static double signed_number(uint32_t value, uint32_t bits) {
    auto number = static_cast<int32_t>(value);
    int32_t sign = 1 << (bits - 1);
    return number >= sign ? number - 2 * sign : number;
}

// Ten bits: the low eight, and the two top bits of the byte behind them as high bits.
static double signed_ten_bits(const uint8_t *bytes) {
    return signed_number(bytes[0] | (bytes[1] & 0xC0U) << 2, 10);
}

static void decode_text(const uint8_t *bytes, char (&out)[DESCRIPTION_SIZE]) {
    uint8_t kind = bytes[0] >> 6;
    size_t length = bytes[0] & 0x1F;
    if (length == RESERVED_LENGTH) {
        copy_bounded(out, "[1Fh length buffer]", sizeof out);
    } else if (kind < std::size(UNREAD_KINDS)) {
        copy_bounded(out, UNREAD_KINDS[kind], sizeof out);
    } else {
        length = std::min(length, TEXT_LIMIT);
        memcpy(out, bytes + 1, length);
        out[length] = '\0';
    }
}

// What stands at the same places in both kinds.
static void decode_common(const uint8_t *bytes, sensor_record *out) {
    *out = {};
    out->lun = bytes[6] & 0x03;
    out->sensor_number = bytes[7];
    out->entity_id = bytes[8];
    out->entity_is_group = (bytes[9] & 0x80) != 0;
    out->entity_instance = bytes[9] & 0x7F;
    out->ignore_if_absent = (bytes[11] & 0x80) != 0;
    out->sensor_type = bytes[12];
    out->reading_type = bytes[13];
    out->rate_unit = bytes[20] >> 3 & 0x07;
    out->unit_modifier = bytes[20] >> 1 & 0x03;
    out->percentage = (bytes[20] & 0x01) != 0;
    out->base_unit = bytes[21];
    out->modifier_unit = bytes[22];
}

const char *decode_full_record(const uint8_t (&bytes)[SDR_SIZE], sensor_record *out) {
    if (bytes[LENGTH] < FULL_LENGTH) return "Full Sensor Record too short";
    decode_common(bytes, out);
    out->numeric_format = bytes[20] >> 6;
    out->linearization = bytes[23] & 0x7F;
    out->m = signed_ten_bits(bytes + 24);
    out->b = signed_ten_bits(bytes + 26);
    out->direction = bytes[28] & 0x03;
    out->r_exp = signed_number(bytes[29] >> 4, 4);
    out->b_exp = signed_number(bytes[29] & 0x0F, 4);
    decode_text(bytes + FULL_TEXT, out->description);
    return nullptr;
}

const char *decode_compact_record(const uint8_t (&bytes)[SDR_SIZE], sensor_record *out) {
    if (bytes[LENGTH] < COMPACT_LENGTH)
        return format_error("Compact Sensor Record too short (%i bytes)", bytes[LENGTH]);
    decode_common(bytes, out);
    out->numeric_format = FORMAT_NONE;
    out->direction = bytes[23] >> 6;
    decode_text(bytes + COMPACT_TEXT, out->description);
    return nullptr;
}

static void log_record(const sensor_record *record) {
    agent_log(
        LOG_TRACE,
        "  sensor 0x%X lun %i \"%s\": entity %u.%i%s%s, type %u, reading type 0x%X, format %u, direction %u",
        record->sensor_number, record->lun, record->description, record->entity_id, record->entity_instance,
        record->entity_is_group ? " (container)" : "", record->ignore_if_absent ? " (ignored if absent)" : "",
        record->sensor_type, record->reading_type, record->numeric_format, record->direction);
    agent_log(LOG_TRACE,
              "  units: base %u, modifier %u, use of modifier %u, rate %u%s; linearization %u, M=%g, B=%g, "
              "Bexp=%g, Rexp=%g",
              record->base_unit, record->modifier_unit, record->unit_modifier, record->rate_unit,
              record->percentage ? ", percentage" : "", record->linearization, record->m, record->b,
              record->b_exp, record->r_exp);
}

static const char *add_record(const sensor_record &decoded) {
    auto *record = heap_new<sensor_record>();
    if (record == nullptr) return "Out of memory allocating SDR";
    *record = decoded;
    record->next = sensor_records;
    sensor_records = record;
    log_record(record);
    return nullptr;
}

const char *parse_full_record(const uint8_t (&bytes)[SDR_SIZE]) {
    sensor_record decoded;
    if (auto *failure = decode_full_record(bytes, &decoded)) return failure;
    return add_record(decoded);
}

const char *parse_compact_record(const uint8_t (&bytes)[SDR_SIZE]) {
    sensor_record decoded;
    if (auto *failure = decode_compact_record(bytes, &decoded)) return failure;
    return add_record(decoded);
}

void free_sensor_records() {
    while (sensor_records != nullptr) {
        sensor_record *next = sensor_records->next;
        heap_free(sensor_records);
        sensor_records = next;
    }
}

sensor_record *find_sensor_record(uint32_t lun, uint32_t sensor_number) {
    for (sensor_record *record = sensor_records; record != nullptr; record = record->next)
        if (record->lun == lun && record->sensor_number == sensor_number) return record;
    return nullptr;
}
