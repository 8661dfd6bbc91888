// What a SAF-TE enclosure answers, from bytes to records.
//
// Configuration, 64 bytes: 0 fans, 1 power supplies, 2 device slots, 4 temperature sensors, and bit 7 of 6
// for temperatures in degrees Celsius.
//
// Status: a byte for each fan, each power supply and each slot, 2 bytes, a byte for each temperature sensor,
// 2 bytes.
//
// Slot status, 4 bytes a slot: flags in the bytes 0, 1 and 3.
//
// A number that equals a count is let through by the checks; what stands there is 0 in every record.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t SAFTE_INQUIRY_SIZE = 96;
inline constexpr uint32_t SAFTE_CONFIG_SIZE = 64;
inline constexpr uint32_t SAFTE_SLOT_SIZE = 4;
inline constexpr uint32_t SAFTE_PLACES = 256; // more than any count, which is a byte

struct safte_config {
    uint8_t fans;
    uint8_t psus;
    uint8_t slots;
    uint8_t temps;
    bool celsius;
};

struct safte_status {
    uint8_t fans[SAFTE_PLACES];
    uint8_t psus[SAFTE_PLACES];
    uint8_t temps[SAFTE_PLACES];
};

struct safte_slot {
    uint8_t flags0;
    uint8_t flags1;
    uint8_t flags3;
};

struct safte_slots {
    safte_slot slots[SAFTE_PLACES];
};

// A value and the words for it; without words the byte has no meaning.
struct safte_value {
    int32_t value;
    const char *comment;
};

// Of a reply of SAFTE_INQUIRY_SIZE bytes.
bool is_safte_inquiry(const uint8_t *reply);
// Of a reply of SAFTE_CONFIG_SIZE bytes.
void decode_safte_config(const uint8_t *reply, safte_config *out);
uint32_t safte_status_size(const safte_config &config);
uint32_t safte_slots_size(const safte_config &config);
// Of replies of those sizes; what lies beyond `size` bytes is 0.
void decode_safte_status(const uint8_t *reply, uint32_t size, const safte_config &config, safte_status *out);
void decode_safte_slots(const uint8_t *reply, uint32_t size, const safte_config &config, safte_slots *out);

safte_value safte_fan_value(uint8_t status);
safte_value safte_psu_value(uint8_t status);
safte_value safte_slot_value(const safte_slot &slot, bool activation_trusted);
bool safte_slot_is_active(const safte_slot &slot);
// In degrees Celsius.
double safte_temperature(uint8_t raw, bool celsius);
