#include "probes/hw/raid.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "probes/hw/ciss_layout.h"
#include "probes/hw/id_text.h"

#include <cstdio>

const raid_ops *raid_host;

raid_controller raid_controllers[RAID_PORTS];
uint32_t raid_controller_count;

namespace {

constexpr uint32_t VOLUMES = 32;
constexpr char CSMI_REASON[] = "disabled";
constexpr size_t ID_SIZE = 32;

struct status_check {
    uint32_t controller_type;
    scan_words words;
};

constexpr status_check STATUS_CHECKS[] = {
    {CONTROLLER_LEGACY_CISS,
     {.id = "cciss:status", .name = "Status", .comment = "", .type = 13, .unit = "", .description = 27}},
    {CONTROLLER_CSMI,
     {.id = "csmi:status",
      .name = "Status (CSMI)",
      .comment = "",
      .type = 14,
      .unit = "",
      .description = 28}},
};

} // namespace

// ---- controllers

static bool send(raid_adapter *adapter, ciss_request request, uint8_t volume, uint8_t *block) {
    uint32_t size = encode_ciss_request(request, volume, block);
    return raid_host->DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT_CODE, block, size);
}

void close_controllers() {
    for (uint32_t i = 0; i < raid_controller_count; i++)
        raid_host->CloseHandle(raid_controllers[i].handle);
    raid_controller_count = 0;
}

static bool is_legacy_controller(raid_adapter *adapter, const char *path) {
    uint8_t block[CISS_BLOCK_LIMIT];
    if (!send(adapter, CISS_IDENTIFY_CONTROLLER, 0, block) || ciss_return_code(block) != 0) return false;
    ciss_controller found;
    decode_ciss_controller(block, &found);
    agent_log(LOG_TRACE, " %s is Legacy Compaq: %u LVs, firmware: %c%c%c%c", path, found.volumes,
              found.firmware[0], found.firmware[1], found.firmware[2], found.firmware[3]);
    return true;
}

static void add_controller(raid_adapter *adapter, const char *path, uint32_t type) {
    raid_controller *controller = &raid_controllers[raid_controller_count++];
    *controller = {.handle = adapter, .name = {}, .type = type};
    copy_bounded(controller->name, path, sizeof controller->name);
}

static void probe_port(uint32_t port) {
    char path[ID_SIZE];
    snprintf(path, sizeof path, "\\\\.\\scsi%u:", port);
    raid_adapter *adapter = raid_host->CreateFileA(path, RAID_ADAPTER_ACCESS);
    if (adapter == nullptr) return;
    agent_log(LOG_TRACE, "Probing for CSMI support on %s", path);
    agent_log(LOG_TRACE, " %s does not support CSMI (%s) - probing legacy CCISS", path, CSMI_REASON);
    if (is_legacy_controller(adapter, path)) {
        add_controller(adapter, path, CONTROLLER_LEGACY_CISS);
        agent_log(LOG_NORMAL, "Driver on %s is %s capable", path, "Compaq legacy CISS");
        return;
    }
    agent_log(LOG_TRACE, " %s does not support legacy Compaq CISS", path);
    raid_host->CloseHandle(adapter);
}

void find_controllers() {
    for (uint32_t port = 0; port < RAID_PORTS; port++)
        probe_port(port);
}

// ---- volumes

static devnode *new_status_check(uint32_t controller_type) {
    for (const status_check &check : STATUS_CHECKS)
        if (check.controller_type == controller_type) return new_scan_device(check.words);
    fatal("Controller type changed behind us");
}

static devtree *numbered_group(devtree *parent, const char *id_prefix, const char *name_prefix,
                               uint32_t number) {
    char id[ID_SIZE];
    char name[ID_SIZE];
    snprintf(id, sizeof id, "%s:%u", id_prefix, number);
    snprintf(name, sizeof name, "%s %u", name_prefix, number);
    return parent != nullptr ? devtree_child(parent, id, name) : nullptr;
}

const char *offer_volume(devtree *root, uint32_t number, uint32_t volume) {
    devnode_guard check(new_status_check(raid_controllers[number].type));
    devtree *top = devtree_child(root, "csmiplus", "Array controllers");
    devtree *controller = numbered_group(top, "cntrl", "Controller", number);
    devtree *logical = controller != nullptr ? devtree_child(controller, "logical", "Volumes") : nullptr;
    devtree *group = numbered_group(logical, "lv", "Volume", volume);
    if (group == nullptr) return "Couldn't allocate devtree_child mem";
    top->group_flags |= GROUP_OF_INSTANCES;
    top->name_template = "%1r %0r on %3r";
    logical->group_flags |= GROUP_OF_INSTANCES;
    devtree_add_devices(group, check.release());
    return nullptr;
}

static const char *scan_legacy_volume(devtree *root, uint32_t number, uint8_t volume) {
    const raid_controller *controller = &raid_controllers[number];
    uint8_t block[CISS_BLOCK_LIMIT];
    if (!send(controller->handle, CISS_IDENTIFY_VOLUME, volume, block) || ciss_return_code(block) != 0)
        return format_error("Failed legacy volume inquiry, %s lv%u", controller->name, volume);
    ciss_volume found;
    decode_ciss_volume(block, &found);
    if (found.block_size == 0 && found.blocks == 0) return nullptr;
    agent_log(LOG_TRACE, " Located volume %u (%u blocks of %u bytes)", volume, found.blocks,
              found.block_size);
    return offer_volume(root, number, volume);
}

const char *scan_volumes(devtree *root, uint32_t number) {
    const raid_controller *controller = &raid_controllers[number];
    agent_log(LOG_TRACE, "Will probe for volumes on %s", controller->name);
    if (controller->type == CONTROLLER_CSMI) {
        agent_log(LOG_NORMAL, "Unable to query RAID info on %s: %s", controller->name, CSMI_REASON);
        return nullptr;
    }
    if (controller->type != CONTROLLER_LEGACY_CISS) {
        agent_log(LOG_ERROR, "Unset controller type: %u", controller->type);
        return nullptr;
    }
    for (uint8_t volume = 0; volume < VOLUMES; volume++)
        if (auto *failure = scan_legacy_volume(root, number, volume)) return failure;
    return nullptr;
}

const char *scan_raid(devtree *root) {
    close_controllers();
    find_controllers();
    for (uint32_t number = 0; number < raid_controller_count; number++)
        if (auto *failure = scan_volumes(root, number)) return failure;
    return nullptr;
}

// ---- check

static const devtree *parent_of(const devtree *group) {
    return group != nullptr ? group->parent : nullptr;
}

// An absent group has an empty id.
static const char *id_of(const devtree *group) {
    return group != nullptr ? group->id : "";
}

static bool read_id(const char *id, const char *prefix, uint32_t *out) {
    return read_word(&id, prefix) && read_number(&id, out);
}

static const char *check_legacy_status(const raid_controller *controller, uint8_t volume, resnode *result) {
    uint8_t block[CISS_BLOCK_LIMIT];
    if (!send(controller->handle, CISS_VOLUME_STATUS, volume, block)) return "Cannot send CISS BMIC";
    if (uint32_t code = ciss_return_code(block); code != 0)
        return format_error("Legacy Compaq CISS driver returned status %u", code);
    uint8_t state = decode_ciss_state(block);
    result->value = state;
    result->comment = text_copy(ciss_state_text(state));
    return nullptr;
}

const char *check_raid(devnode *device, resnode *result) {
    const devtree *volume_group = device->parent;
    const devtree *controller_group = parent_of(parent_of(volume_group));
    uint32_t volume = 0;
    uint32_t number = 0;
    // A request has one byte for the volume.
    if (!read_id(id_of(volume_group), "lv:", &volume) || volume > UINT8_MAX)
        return format_error("Cannot scan volume id \"%s\"", id_of(volume_group));
    if (!read_id(id_of(controller_group), "cntrl:", &number))
        return format_error("Cannot scan controller id \"%s\"", id_of(controller_group));
    if (number >= raid_controller_count)
        return format_error("Controller id %u out of range (ceiling:%u)", number, raid_controller_count);
    const raid_controller *controller = &raid_controllers[number];
    agent_log(LOG_TRACE, "About to check %s on volume %u controller %u (%s)", device->id, volume, number,
              controller->name);
    if (text_equal(device->id, "cciss:status"))
        return check_legacy_status(controller, static_cast<uint8_t>(volume), result);
    if (text_equal(device->id, "csmi:status"))
        return format_error("No CSMI volume status on %s: %s", controller->name, CSMI_REASON);
    return format_error("Unable to check \"%s\"", device->id);
}
