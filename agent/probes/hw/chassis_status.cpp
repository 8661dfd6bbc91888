#include "probes/hw/chassis_status.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/ipmi_channel.h"

namespace {

// IPMI 2.0, clause 28.2. Byte 0 is the power state, byte 2 other states.
constexpr uint8_t NETFN_CHASSIS = 0;
constexpr uint8_t GET_CHASSIS_STATUS = 0x01;
constexpr uint32_t RESPONSE_SIZE = 3;

constexpr uint32_t DESCRIPTION_STATE = 21;

struct chassis_fault {
    const char *id;
    const char *name;
    uint8_t byte;
    uint8_t mask;
    const char *problem;
    const char *fine;
};

constexpr chassis_fault FAULTS[] = {
    {"poweroverload", "Power Overload", 0, 0x02, "Problem with power load", "Power load is OK"},
    {"mainpowerfault", "Main Power Fault", 0, 0x08, "Problem with main power", "Main power is OK"},
    {"powercontrolfault", "Power Control Fault", 0, 0x10, "Problem with power control",
     "Power control is OK"},
    {"drivefault", "Drive Fault", 2, 0x04, "Problem with drives", "Drives are OK"},
    {"coolingfault", "Cooling/Fan Fault", 2, 0x08, "Problem with Cooling/Fans", "Cooling/Fans are OK"},
};

} // namespace

static const char *send_get_status(ipmi_response_guard *out) {
    const ipmi_request request = {.netfn = NETFN_CHASSIS, .command = GET_CHASSIS_STATUS};
    ipmi_response *made = nullptr;
    const char *failure = ipmi_command(active_bmcs, &made, &request);
    out->reset(made);
    return failure;
}

// What is wrong with a reply, absent where nothing is.
static const char *judge_reply(const ipmi_response *response) {
    if (response == nullptr) return "Get Chassis Status: didn't return a response";
    if (response->ccode != 0) return format_error("Get Chassis Status return ccode %u", response->ccode);
    if (response->data_len < RESPONSE_SIZE) return "Get Chassis Status: got too few data";
    return nullptr;
}

static const char *add_faults(devtree *group) {
    devnode *first = nullptr;
    devnode **tail = &first;
    for (const chassis_fault &fault : FAULTS) {
        *tail = new_scan_device({.id = fault.id,
                                 .name = fault.name,
                                 .comment = fault.name,
                                 .type = TYPE_TWO_STATE,
                                 .unit = "",
                                 .description = DESCRIPTION_STATE});
        tail = &(*tail)->next;
    }
    return offer_devices(group, CHASSIS_GROUP, "ChassisStatus", "%0r", 0, first);
}

const char *scan_chassis_status(devtree *group) {
    ipmi_response_guard response;
    if (auto *failure = send_get_status(&response)) {
        agent_log(LOG_NORMAL, "Get Chassis Status failed: %s", failure);
        return nullptr;
    }
    if (auto *fault = judge_reply(response.get())) {
        agent_log(LOG_NORMAL, "%s", fault);
        return nullptr;
    }
    return add_faults(group);
}

const char *check_chassis_status(devnode *device, resnode *result) {
    ipmi_response_guard response;
    if (auto *failure = send_get_status(&response)) return failure;
    if (auto *failure = judge_reply(response.get())) return failure;
    for (const chassis_fault &fault : FAULTS) {
        if (!text_equal(fault.id, device->id)) continue;
        bool set = (response->data[fault.byte] & fault.mask) != 0;
        result->value = set ? 1 : 0;
        text_replace(&result->comment, text_copy(set ? fault.problem : fault.fine));
    }
    return nullptr;
}
