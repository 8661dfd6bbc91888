#include "custom/custom_check.h"

#include "custom/custom_device.h"
#include "custom/custom_run.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "settings/settings.h"

// The checks of the last scan. Their previous readings go with them: each scan starts a rate afresh.
static custom_check *checks;

static constexpr uint32_t DESCRIPTION_CUSTOM = 21; // "Check OK", "Check suspicious", "Check bad"

static void drop_checks() {
    custom_checks_free(checks);
    checks = nullptr;
}

static void read_checks() {
    drop_checks();
    if (config_in_force == nullptr || config_in_force->custom_chk_conf == nullptr) return;
    const char *failure = custom_checks_read(config_in_force->custom_chk_conf, &checks);
    if (failure == nullptr) return;
    agent_log(LOG_ERROR, "Cannot read custom checks: %s", failure);
    drop_checks();
}

// To the server "%" alone means hundredths of it.
static const char *offered_unit(const custom_check *check) {
    return text_equal(check->unit, "%") ? "1%" : check->unit;
}

static uint32_t offered_type(const custom_check *check) {
    switch (check->type) {
    case CUSTOM_Boolean:
        return TYPE_TWO_STATE;
    case CUSTOM_Integer:
        return TYPE_CONTINUOUS;
    default:
        return TYPE_REAL_CONTINUOUS;
    }
}

const char *scan_custom(devtree *root) {
    agent_log(LOG_DETAIL, "Scanning custom checks");
    read_checks();
    devnode *devices = nullptr;
    for (const custom_check *check = checks; check != nullptr; check = check->next) // against the file
        add_custom_device(&devices, {.name = check->name,
                                     .type = offered_type(check),
                                     .unit = offered_unit(check),
                                     .description = DESCRIPTION_CUSTOM});
    offer_custom_devices(root, "custom", "Custom AgentChecks", "Custom check %0r", devices);
    agent_log(LOG_DETAIL, "Scan of custom checks complete");
    return nullptr;
}

static custom_check *find_check(const char *name) {
    custom_check *check = checks;
    while (check != nullptr && !text_equal(check->name, name))
        check = check->next;
    return check;
}

const char *check_custom(devnode *device, resnode *result) {
    custom_check *check = find_check(device->id);
    if (check == nullptr) return format_error("Cannot find custom check name \"%s\"", device->id);
    agent_log(LOG_DETAIL, "Executing custom check %s", check->name);
    return run_custom_check(check, result);
}

void custom_check_reset() {
    drop_checks();
    custom_run_reset();
}
