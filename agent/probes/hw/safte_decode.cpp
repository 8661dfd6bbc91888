#include "probes/hw/safte_decode.h"

#include <cstring>

namespace {

constexpr uint8_t PROCESSOR_DEVICE = 3;
constexpr uint32_t SIGNATURE_OFFSET = 44;
constexpr char SIGNATURE[] = "SAF-TE";
constexpr uint8_t CELSIUS_BIT = 1U << 7;
constexpr uint32_t BEFORE_TEMPS = 2;
constexpr uint32_t STATUS_EXTRA = 4;

struct byte_meaning {
    uint8_t byte;
    int32_t value;
    const char *comment;
};

constexpr byte_meaning FAN_MEANINGS[] = {
    {0, 0, "Fan operational"},
    {1, 1, "Fan malfunctioning"},
    {2, 2, "Fan not present"},
};

constexpr byte_meaning PSU_MEANINGS[] = {
    {0x00, 0, "Operational and on"},
    {0x01, 1, "Operational, but off"},
    {0x10, 2, "Malfunctioning, but should be on"},
    {0x11, 3, "Malfunctioning, should be off"},
    {0x20, 4, "Not present"},
    {0x21, 5, "Present"},
};

// Flags of a slot.
enum : uint8_t { SLOT_INSERTED_3 = 1U << 0, SLOT_ACTIVE_3 = 1U << 2 };

// A slot has the first meaning of whose flags all are set.
struct slot_meaning {
    uint8_t flags0;
    uint8_t flags1;
    int32_t value;
    const char *comment;
};

constexpr slot_meaning SLOT_MEANINGS[] = {
    {1U << 1, 0, 3, "Disk faulty"},
    {1U << 6, 0, 2, "Predicted disk fault"},
    {1U << 2, 0, 1, "Rebuilding"},
    {0, 1U << 1, 3, "Rebuild stopped"},
    {1U << 7, 0, 6, "Not configured in any RAID"},
    {1U << 0, 1U << 0, 0, "Disk OK, hot spare"},
    {1U << 0, 0, 0, "Disk OK"},
    {0, 0, 7, "Unknown safte status"},
};

// The bytes of a reply, 0 behind its end.
struct reply_bytes {
    const uint8_t *data;
    uint32_t size;

    uint8_t at(uint32_t offset) const { return offset < size ? data[offset] : uint8_t{0}; }
};

} // namespace

bool is_safte_inquiry(const uint8_t *reply) {
    return reply[0] == PROCESSOR_DEVICE &&
           memcmp(reply + SIGNATURE_OFFSET, SIGNATURE, sizeof SIGNATURE - 1) == 0;
}

void decode_safte_config(const uint8_t *reply, safte_config *out) {
    *out = {.fans = reply[0],
            .psus = reply[1],
            .slots = reply[2],
            .temps = reply[4],
            .celsius = (reply[6] & CELSIUS_BIT) != 0};
}

uint32_t safte_status_size(const safte_config &config) {
    return 0U + config.fans + config.psus + config.slots + config.temps + STATUS_EXTRA;
}

uint32_t safte_slots_size(const safte_config &config) {
    return config.slots * SAFTE_SLOT_SIZE;
}

static void copy_status(const reply_bytes &reply, uint32_t offset, uint32_t count, uint8_t *out) {
    memset(out, 0, SAFTE_PLACES);
    for (uint32_t i = 0; i < count; i++)
        out[i] = reply.at(offset + i);
}

void decode_safte_status(const uint8_t *reply, uint32_t size, const safte_config &config, safte_status *out) {
    reply_bytes bytes = {reply, size};
    uint32_t psus = config.fans;
    uint32_t slots = psus + config.psus;
    uint32_t temps = slots + config.slots + BEFORE_TEMPS;
    copy_status(bytes, 0, config.fans, out->fans);
    copy_status(bytes, psus, config.psus, out->psus);
    copy_status(bytes, temps, config.temps, out->temps);
}

void decode_safte_slots(const uint8_t *reply, uint32_t size, const safte_config &config, safte_slots *out) {
    reply_bytes bytes = {reply, size};
    *out = {};
    for (uint32_t i = 0; i < config.slots; i++) {
        uint32_t slot = i * SAFTE_SLOT_SIZE;
        out->slots[i] = {bytes.at(slot), bytes.at(slot + 1), bytes.at(slot + 3)};
    }
}

template <size_t Count>
static safte_value find_meaning(const byte_meaning (&meanings)[Count], uint8_t status) {
    for (const byte_meaning &meaning : meanings)
        if (meaning.byte == status) return {meaning.value, meaning.comment};
    return {};
}

safte_value safte_fan_value(uint8_t status) {
    return find_meaning(FAN_MEANINGS, status);
}

safte_value safte_psu_value(uint8_t status) {
    return find_meaning(PSU_MEANINGS, status);
}

bool safte_slot_is_active(const safte_slot &slot) {
    return (slot.flags3 & SLOT_ACTIVE_3) != 0;
}

static bool has_all(uint8_t flags, uint8_t wanted) {
    return (flags & wanted) == wanted;
}

safte_value safte_slot_value(const safte_slot &slot, bool activation_trusted) {
    if ((slot.flags3 & SLOT_INSERTED_3) == 0) return {5, "No disk in slot"};
    if (activation_trusted && !safte_slot_is_active(slot)) return {4, "Disk not activated"};
    for (const slot_meaning &meaning : SLOT_MEANINGS)
        if (has_all(slot.flags0, meaning.flags0) && has_all(slot.flags1, meaning.flags1))
            return {meaning.value, meaning.comment};
    return {};
}

double safte_temperature(uint8_t raw, bool celsius) {
    double degrees = raw - 10.0;
    return celsius ? degrees : (degrees - 32) / 1.8;
}
