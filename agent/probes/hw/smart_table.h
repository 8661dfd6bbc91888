// The two tables of a drive's SMART data, and the verdict on them.
//
// Both are 512 bytes in which the numbers are little-endian:
//
//     bytes     what
//     0-1       revision
//     2-361     30 slots of 12 bytes
//
// A slot of the attribute table has its id in byte 0 (0 marks an empty slot), the low byte of its flags in
// byte 1, of which bit 0 means pre-failure, and the current value in byte 3; a slot of the threshold table
// its id in byte 0 and the threshold in byte 1. Slots are matched by position, not by id.
#pragma once

#include <cstdint>

inline constexpr uint32_t SMART_SLOTS = 30;

struct smart_attribute {
    uint8_t id;
    bool pre_failure;
    uint8_t value;
};

struct smart_attributes {
    uint16_t revision;
    smart_attribute slots[SMART_SLOTS];
};

struct smart_threshold {
    uint8_t id;
    uint8_t threshold;
};

struct smart_thresholds {
    uint16_t revision;
    smart_threshold slots[SMART_SLOTS];
};

// A verdict is the value of a check's result.
enum smart_verdict : int32_t { DRIVE_OK = 0, DRIVE_PAST_LIFETIME = 1, DRIVE_FAILING = 2 };

// Of a table's 512 bytes.
void decode_smart_attributes(const uint8_t *table, smart_attributes *out);
void decode_smart_thresholds(const uint8_t *table, smart_thresholds *out);

// The highest score of all slots. Tells each slot in the log.
smart_verdict judge_smart(const smart_attributes &attributes, const smart_thresholds &thresholds);

// The comment of a result.
const char *smart_verdict_text(smart_verdict verdict);
