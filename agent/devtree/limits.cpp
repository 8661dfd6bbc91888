#include "devtree/limits.h"

#include "platform/agent_log.h"

template <class T>
static bool outside(T value, T low, T high) {
    return (low >= 0 && value < low) || (high >= 0 && value > high);
}

static uint32_t evaluate_bitmap(const devnode *device, int32_t value) {
    const auto &limits = device->limits.bitmap;
    agent_log(LOG_TRACE, "Using bitmap, value = %i, warn = %i, alert = %i", value,
              static_cast<int>(limits.warn_mask), static_cast<int>(limits.alert_mask));
    uint32_t bit = 1U << (static_cast<uint32_t>(value) & 31U);
    if ((limits.alert_mask & bit) != 0) return STATUS_ALERT;
    return (limits.warn_mask & bit) != 0 ? STATUS_WARNING : STATUS_GOOD;
}

static uint32_t evaluate_real(const devnode *device, double value) {
    const auto &limits = device->limits.real;
    agent_log(LOG_TRACE, "RealContinuous check %f: %f %f %f %f", value, limits.real_alert_low,
              limits.real_warn_low, limits.real_warn_high, limits.real_alert_high);
    if (outside(value, limits.real_alert_low, limits.real_alert_high)) return STATUS_ALERT;
    return outside(value, limits.real_warn_low, limits.real_warn_high) ? STATUS_WARNING : STATUS_GOOD;
}

static uint32_t evaluate_continuous(const devnode *device, int32_t value) {
    const auto &limits = device->limits.continuous;
    agent_log(LOG_TRACE, "Continuous check %d: %d %d %d %d", value, limits.alert_low, limits.warn_low,
              limits.warn_high, limits.alert_high);
    if (outside(value, limits.alert_low, limits.alert_high)) return STATUS_ALERT;
    return outside(value, limits.warn_low, limits.warn_high) ? STATUS_WARNING : STATUS_GOOD;
}

uint32_t evaluate_limits(const devnode *device, const resnode *result) {
    if (is_bitmap_type(device->type)) return evaluate_bitmap(device, result->value);
    if (device->type == TYPE_REAL_CONTINUOUS) return evaluate_real(device, result->real_value);
    return evaluate_continuous(device, result->value);
}
