// One sensor, as the BMC's repository describes it: decoded from a full or a compact sensor data record.
#pragma once

#include "platform/heap.h"

#include <cstddef>
#include <cstdint>

inline constexpr size_t SDR_SIZE = 256; // no record is longer
inline constexpr size_t DESCRIPTION_SIZE = 24; // 16 characters, or words of ours

// Bytes 3 of the header.
enum : uint8_t { SDR_FULL = 1, SDR_COMPACT = 2 };

enum : uint32_t {
    FORMAT_UNSIGNED = 0,
    FORMAT_ONES_COMPLEMENT = 1,
    FORMAT_TWOS_COMPLEMENT = 2,
    FORMAT_NONE = 3
};
enum : uint8_t { READING_DIGITAL = 3, READING_SENSOR_SPECIFIC = 0x6F };
enum : uint32_t { SENSOR_DRIVE_BAY = 13 };
enum : uint32_t { ENTITY_DISK = 4 };

struct sensor_record {
    uint8_t lun;
    uint8_t sensor_number;
    uint32_t entity_id;
    bool entity_is_group;
    uint8_t entity_instance;
    bool ignore_if_absent; // nothing acts on it
    uint32_t sensor_type;
    uint8_t reading_type;
    uint32_t numeric_format;
    uint32_t rate_unit;
    uint32_t unit_modifier; // 0 base unit alone, 1 base per modifier, 2 base times modifier
    bool percentage;
    uint32_t base_unit;
    uint32_t modifier_unit;
    uint32_t linearization;
    double m;
    double b;
    double r_exp;
    double b_exp;
    uint32_t direction;
    char description[DESCRIPTION_SIZE];
    uint32_t zero_count; // 0 to 2: how surely a reading of 0 is no mistake
    sensor_record *next;
};

// The sensors of the last scan, the latest parsed first.
extern sensor_record *sensor_records;

void free_sensor_records();

// The first one of this number, or absent.
sensor_record *find_sensor_record(uint32_t lun, uint32_t sensor_number);

// Decodes a record of the named kind. The whole buffer may be looked at, whatever the record's length says.
[[nodiscard]] const char *decode_full_record(const uint8_t (&bytes)[SDR_SIZE], sensor_record *out);
[[nodiscard]] const char *decode_compact_record(const uint8_t (&bytes)[SDR_SIZE], sensor_record *out);

// Decodes and puts at the head of the list.
[[nodiscard]] const char *parse_full_record(const uint8_t (&bytes)[SDR_SIZE]);
[[nodiscard]] const char *parse_compact_record(const uint8_t (&bytes)[SDR_SIZE]);
