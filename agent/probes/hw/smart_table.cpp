#include "probes/hw/smart_table.h"

#include "platform/agent_log.h"
#include "probes/hw/bytes.h"

#include <algorithm>

namespace {

constexpr uint32_t FIRST_SLOT = 2;
constexpr uint32_t SLOT_SIZE = 12;
constexpr uint8_t PRE_FAILURE = 1U << 0;

constexpr const char *VERDICTS[] = {
    "Drive is OK",
    "Drive has exceeded lifetime",
    "Drive is about to fail",
};

} // namespace

static const uint8_t *slot_of(const uint8_t *table, uint32_t index) {
    return table + FIRST_SLOT + static_cast<size_t>(index) * SLOT_SIZE;
}

void decode_smart_attributes(const uint8_t *table, smart_attributes *out) {
    out->revision = little_16(table);
    for (uint32_t i = 0; i < SMART_SLOTS; i++) {
        const uint8_t *slot = slot_of(table, i);
        out->slots[i] = {.id = slot[0], .pre_failure = (slot[1] & PRE_FAILURE) != 0, .value = slot[3]};
    }
}

void decode_smart_thresholds(const uint8_t *table, smart_thresholds *out) {
    out->revision = little_16(table);
    for (uint32_t i = 0; i < SMART_SLOTS; i++) {
        const uint8_t *slot = slot_of(table, i);
        out->slots[i] = {.id = slot[0], .threshold = slot[1]};
    }
}

static smart_verdict judge_slot(const smart_attribute &attribute, const smart_threshold &threshold) {
    if (attribute.id == 0 || threshold.threshold == 0) return DRIVE_OK;
    if (attribute.value > threshold.threshold) return DRIVE_OK;
    agent_log(LOG_DETAIL, "Something is wrong");
    return attribute.pre_failure ? DRIVE_FAILING : DRIVE_PAST_LIFETIME;
}

smart_verdict judge_smart(const smart_attributes &attributes, const smart_thresholds &thresholds) {
    agent_log(LOG_DETAIL, "Smart attributes revision: %i", attributes.revision);
    agent_log(LOG_DETAIL, "Smart thresholds revision: %i", thresholds.revision);
    smart_verdict verdict = DRIVE_OK;
    for (uint32_t i = 0; i < SMART_SLOTS; i++) {
        const smart_attribute &attribute = attributes.slots[i];
        const smart_threshold &threshold = thresholds.slots[i];
        agent_log(LOG_DETAIL, "Checking value %i: id: %i, value: %i, id: %i, threshold: %i",
                  static_cast<int>(i), attribute.id, attribute.value, threshold.id, threshold.threshold);
        verdict = std::max(verdict, judge_slot(attribute, threshold));
    }
    return verdict;
}

const char *smart_verdict_text(smart_verdict verdict) {
    return VERDICTS[verdict];
}
