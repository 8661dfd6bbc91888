#include "probes/hw/ipmi_sensors.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/chassis_status.h"
#include "probes/hw/ipmi_channel.h"
#include "probes/hw/ipmi_names.h"
#include "probes/hw/sdr.h"
#include "probes/hw/sensor_reading.h"

#include <cstdio>

namespace {

constexpr const char *GROUP = "ipmisens";

// IPMI 2.0, clause 20.1. Byte 0 is the device id, byte 4 the version, its low digit in the high nibble.
constexpr uint8_t NETFN_APPLICATION = 6;
constexpr uint8_t GET_DEVICE_ID = 0x01;
constexpr uint32_t DEVICE_ID_SIZE = 5;

constexpr uint32_t TYPE_SLOT_STATE = 10; // of a drive bay

constexpr uint32_t DESCRIPTION_SENSOR = 21;
constexpr uint32_t DESCRIPTION_BAY = 24;

constexpr size_t ID_SIZE = 16;
constexpr size_t NAME_SIZE = 128;

constexpr const char *NO_GROUP = "Couldn't allocate devtree_child mem";

} // namespace

// ---- the device of a sensor

void format_sensor_unit(const sensor_record *record, char (&out)[UNIT_SIZE]) {
    out[0] = '\0';
    if (record->reading_type == READING_DIGITAL) return;
    if (record->percentage) {
        copy_bounded(out, "1%", sizeof out);
        return;
    }
    switch (record->unit_modifier) {
    case 0:
        copy_bounded(out, sensor_unit_name(record->base_unit), sizeof out);
        break;
    case 1:
        snprintf(out, sizeof out, "%s/%s", sensor_unit_name(record->base_unit),
                 sensor_unit_name(record->modifier_unit));
        break;
    case 2:
        snprintf(out, sizeof out, "%s%s", sensor_unit_name(record->base_unit),
                 sensor_unit_name(record->modifier_unit));
        break;
    case 3:
        agent_log(LOG_TRACE, "Unknown unit for sensor %i", record->sensor_number);
        break;
    default:
        agent_log(LOG_TRACE, "Unknown unit combination %i for sensor %i",
                  static_cast<int>(record->unit_modifier), record->sensor_number);
    }
}

namespace {

struct sensor_kind {
    const char *suffix; // of the name
    uint32_t type;
    uint32_t description;
    bool numeric; // the id has no reading type
};

constexpr sensor_kind ANALOG = {" (Analog)", TYPE_REAL_CONTINUOUS, DESCRIPTION_SENSOR, true};
constexpr sensor_kind DIGITAL = {" (Discrete State)", TYPE_TWO_STATE, DESCRIPTION_SENSOR, false};
constexpr sensor_kind DRIVE_BAY = {" (Drive Bay State)", TYPE_SLOT_STATE, DESCRIPTION_BAY, false};

} // namespace

// Absent, with a line in the log, for a sensor that is not offered.
static const sensor_kind *find_kind(const sensor_record *record) {
    if (record->numeric_format != FORMAT_NONE) return &ANALOG;
    if (record->reading_type == READING_DIGITAL) return &DIGITAL;
    if (record->sensor_type != SENSOR_DRIVE_BAY)
        agent_log(LOG_TRACE, " Unsupported IPMI sensor: %s", record->description);
    else if (record->entity_id != ENTITY_DISK)
        agent_log(LOG_TRACE, " Non-disk found in drive bay: %s", record->description);
    else if (record->reading_type != READING_SENSOR_SPECIFIC)
        agent_log(LOG_TRACE, " EI_Disk not SR_SensorSpecific but %d: %s", record->reading_type,
                  record->description);
    else
        return &DRIVE_BAY;
    return nullptr;
}

static void format_name(const sensor_record *record, const char *suffix, char (&out)[NAME_SIZE]) {
    if (record->description[0] != '\0')
        snprintf(out, sizeof out, "%s%s", record->description, suffix);
    else
        snprintf(out, sizeof out, "%s %i%s", sensor_type_name(record->sensor_type), record->sensor_number,
                 suffix);
}

devnode *make_sensor_device(const sensor_record *record) {
    const sensor_kind *kind = find_kind(record);
    if (kind == nullptr) return nullptr;
    char id[ID_SIZE];
    int length = snprintf(id, sizeof id, "%02X:%02X", record->lun, record->sensor_number);
    if (!kind->numeric)
        snprintf(id + length, sizeof id - static_cast<size_t>(length), ":%02X", record->reading_type);
    char name[NAME_SIZE];
    format_name(record, kind->suffix, name);
    char unit[UNIT_SIZE];
    format_sensor_unit(record, unit);
    return new_scan_device({.id = id,
                            .name = name,
                            .comment = nullptr,
                            .type = kind->type,
                            .unit = unit,
                            .description = kind->description});
}

// ---- the scan

static const char *identify_bmc() {
    const ipmi_request request = {.netfn = NETFN_APPLICATION, .command = GET_DEVICE_ID};
    ipmi_response *made = nullptr;
    if (auto *failure = ipmi_command(active_bmcs, &made, &request)) return failure;
    ipmi_response_guard response(made);
    if (response == nullptr) return "Scan of BMC didn't return a response";
    if (response->ccode != 0) return format_error("Scan of BMC return ccode %u", response->ccode);
    if (response->data_len < DEVICE_ID_SIZE) return "Got too few data";
    const uint8_t *data = response->data;
    agent_log(LOG_NORMAL, "IPMI BMC has ID %i, provides ipmi version %x.%x", data[0], data[4] & 0x0F,
              data[4] >> 4);
    return nullptr;
}

// The group of the sensor's kind below those of its entity and of the entity's instance. Absent when memory
// is out.
static devtree *find_sensor_group(devtree *top, const sensor_record *record) {
    char id[ID_SIZE];
    snprintf(id, sizeof id, "E%02X", record->entity_id);
    devtree *entity = devtree_child(top, id, entity_name(record->entity_id));
    if (entity == nullptr) return nullptr;
    entity->group_flags |= GROUP_OF_INSTANCES;

    snprintf(id, sizeof id, "I%02X", record->entity_instance);
    char name[NAME_SIZE];
    snprintf(name, sizeof name, "%i", record->entity_instance);
    devtree *instance = devtree_child(entity, id, name);
    if (instance == nullptr) return nullptr;

    snprintf(id, sizeof id, "S%02X", record->sensor_type);
    snprintf(name, sizeof name, "%s sensors", sensor_type_name(record->sensor_type));
    devtree *kind = devtree_child(instance, id, name);
    if (kind != nullptr) kind->group_flags |= GROUP_OF_INSTANCES;
    return kind;
}

// A sensor that cannot be read now is not offered.
static const char *offer_sensor(devtree *top, sensor_record *record) {
    devnode_guard device(make_sensor_device(record));
    if (device == nullptr) return nullptr;
    auto format = static_cast<int>(record->numeric_format);
    agent_log(LOG_TRACE, "Sensor 0x%X (lun %i) \"%s\" has format %i - will use", record->sensor_number,
              record->lun, record->description, format);
    resnode_guard scratch(alloc_resnode());
    if (auto *failure = read_sensor(record, scratch.get())) {
        agent_log(LOG_DETAIL, "Skipping sensor 0x%X (lun %i) \"%s\" with format %i, due to read error: %s",
                  record->sensor_number, record->lun, record->description, format, failure);
        return nullptr;
    }
    devtree *group = find_sensor_group(top, record);
    if (group == nullptr) return NO_GROUP;
    devtree_add_devices(group, device.release());
    return nullptr;
}

static const char *scan_bmc(devtree *top) {
    if (auto *failure = identify_bmc()) return failure;
    if (auto *failure = scan_chassis_status(top)) return failure;
    return scan_sdr_repository();
}

const char *scan_ipmi_sensors(devtree *root) {
    free_sensor_records();
    if (active_bmcs == nullptr)
        if (auto *failure = init_bmcs()) return failure;
    if (active_bmcs == nullptr) return "Nothing to look at";
    if (active_bmc_count == 0) return nullptr; // and so no sensors either
    devtree *top = devtree_child(root, GROUP, "IPMI Sensors");
    if (top == nullptr) return NO_GROUP;
    top->name_template = "%0r for %3r %2r";
    if (auto *failure = scan_bmc(top)) return failure;
    for (sensor_record *record = sensor_records; record != nullptr; record = record->next)
        if (auto *failure = offer_sensor(top, record)) return failure;
    return nullptr;
}

// ---- the check

const char *check_ipmi_sensor(devnode *device, resnode *result) {
    if (active_bmcs == nullptr) return "Cannot read sensor: No BMCs initialized";
    if (device->parent != nullptr && text_equal(device->parent->id, CHASSIS_GROUP))
        return check_chassis_status(device, result);
    uint32_t lun = 0;
    uint32_t number = 0;
    if (sscanf(device->id, "%2X:%2X", &lun, &number) != 2)
        return format_error("Unable to parse id \"%s\"", device->id);
    sensor_record *record = find_sensor_record(lun, number);
    if (record == nullptr) return format_error("No SDR for sensor %s", device->id);
    return read_sensor(record, result);
}

void ipmi_sensors_reset() {
    free_sensor_records();
    ipmi_channel_reset();
    sdr_reservation = 0;
}
