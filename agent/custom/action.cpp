#include "custom/action.h"

#include "custom/conf_files.h"
#include "custom/custom_device.h"
#include "custom/program.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "settings/settings.h"

// The actions of the last scan.
static agent_action *actions;

static void drop_actions() {
    agent_actions_free(actions);
    actions = nullptr;
}

static void read_actions() {
    drop_actions();
    if (config_in_force == nullptr || config_in_force->actions_conf == nullptr) return;
    const char *failure = agent_actions_read(config_in_force->actions_conf, &actions);
    if (failure == nullptr) return;
    agent_log(LOG_ERROR, "Cannot read AgentActions: %s", failure);
    drop_actions();
}

const char *scan_action(devtree *root) {
    read_actions();
    devnode *devices = nullptr;
    for (const agent_action *action = actions; action != nullptr; action = action->next) // against the file
        add_custom_device(&devices, {.name = action->name, .type = TYPE_ACTION, .unit = ""});
    offer_custom_devices(root, "action", "AgentActions", "AgentAction %0r", devices);
    return nullptr;
}

const char *start_action(const char *name, const char *command) {
    set_program_error_mode();
    const char *failure = start_program(command, nullptr, nullptr);
    if (failure == nullptr) return nullptr;
    return format_error("AgentAction \"%s\", failed executing \"%s\": %s", name, command, failure);
}

static const agent_action *find_action(const char *name) {
    const agent_action *action = actions;
    while (action != nullptr && !text_equal(action->name, name))
        action = action->next;
    return action;
}

const char *check_action(devnode *device, resnode *result) {
    const agent_action *action = find_action(device->id);
    if (action == nullptr) return format_error("Cannot find AgentAction with the name \"%s\"", device->id);
    agent_log(LOG_NORMAL, "Executing AgentAction %s", action->name);
    const char *failure = start_action(action->name, action->command);
    result->value = failure == nullptr ? 1 : 0;
    result->comment = text_copy(failure == nullptr ? "Success" : failure);
    if (failure != nullptr)
        agent_log(LOG_WARNING, "AgentAction %s failed with error: %s", action->name, failure);
    return nullptr;
}

void action_reset() {
    drop_actions();
}
