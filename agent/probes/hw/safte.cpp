#include "probes/hw/safte.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/bytes.h"
#include "probes/hw/id_text.h"
#include "probes/hw/safte_decode.h"
#include "settings/settings.h"

#include <cstdio>

namespace {

constexpr char KIND_TEMPLATE[] = "SAFTE %1l - %0r";
constexpr size_t INDEX_NAME_SIZE = 32;
constexpr uint32_t STATUS_LIMIT = 1024; // above 4 counts of a byte and 4 bytes, and above 255 slots

// One kind of what an enclosure has.
struct safte_kind {
    const char *id;
    const char *name;
    const char *device_name; // followed by the index
    uint32_t type;
    const char *unit;
    uint32_t description;
    uint8_t safte_config::*count;
    const char *out_of_range;
    // Fills the result from the enclosure's status; absent for slots, which have one of their own.
    const char *(*read)(const safte_config &config, const safte_status &status, uint32_t number,
                        resnode *result);
};

// An enclosure whose activation bit is trusted, by the address that its name stands for.
struct trusted_enclosure {
    uint32_t address;
    trusted_enclosure *next;
};

trusted_enclosure *trusted_enclosures;

struct dump_line {
    char text[9];
};

} // namespace

// ---- commands

static const char *inquire(scsi_dev *device, uint8_t *reply) {
    static constexpr uint8_t block[] = {0x12, 0, 0, 0, SAFTE_INQUIRY_SIZE, 0};
    return gen_scsi_cmd(device, block, sizeof block, 0, reply, SAFTE_INQUIRY_SIZE);
}

// A Read Buffer with the length of its answer in the bytes 7 and 8, high byte first.
static const char *read_buffer(scsi_dev *device, uint8_t buffer_id, uint8_t *reply, uint32_t length) {
    uint8_t block[] = {0x3C, 0x01, buffer_id, 0, 0, 0, 0, 0, 0, 0};
    put_big_16(block + 7, static_cast<uint16_t>(length));
    return gen_scsi_cmd(device, block, sizeof block, 0, reply, length);
}

const char *read_enclosure_config(scsi_dev *device, uint8_t *buffer) {
    return read_buffer(device, 0x00, buffer, SAFTE_CONFIG_SIZE);
}

static const char *read_status(scsi_dev *device, const safte_config &config, safte_status *out) {
    uint8_t reply[STATUS_LIMIT] = {};
    uint32_t size = safte_status_size(config);
    if (auto *failure = read_buffer(device, 0x01, reply, size)) return failure;
    decode_safte_status(reply, size, config, out);
    return nullptr;
}

static const char *read_slots(scsi_dev *device, const safte_config &config, safte_slots *out) {
    uint8_t reply[STATUS_LIMIT] = {};
    uint32_t size = safte_slots_size(config);
    if (auto *failure = read_buffer(device, 0x04, reply, size)) return failure;
    decode_safte_slots(reply, size, config, out);
    return nullptr;
}

// ---- the parts of an enclosure

static const char *give(const safte_value &value, const char *unknown, uint8_t status, resnode *result) {
    if (value.comment == nullptr) return format_error("Unknown safte %s status: %d", unknown, status);
    result->value = value.value;
    result->comment = text_copy(value.comment);
    return nullptr;
}

static const char *read_fan(const safte_config &, const safte_status &status, uint32_t number,
                            resnode *result) {
    return give(safte_fan_value(status.fans[number]), "fan", status.fans[number], result);
}

static const char *read_psu(const safte_config &, const safte_status &status, uint32_t number,
                            resnode *result) {
    return give(safte_psu_value(status.psus[number]), "PSU", status.psus[number], result);
}

static const char *read_temp(const safte_config &config, const safte_status &status, uint32_t number,
                             resnode *result) {
    result->real_value = safte_temperature(status.temps[number], config.celsius);
    return nullptr;
}

// In the order in which the groups are made.
static constexpr safte_kind KINDS[] = {
    {
        .id = "slot",
        .name = "Disk slots",
        .device_name = "Disk slot",
        .type = 10,
        .description = 24,
        .count = &safte_config::slots,
        .out_of_range = "Slot number out of range",
    },
    {
        .id = "fan",
        .name = "Fans",
        .device_name = "Fan",
        .type = 11,
        .description = 25,
        .count = &safte_config::fans,
        .out_of_range = "Fan number out of range",
        .read = read_fan,
    },
    {
        .id = "psu",
        .name = "Power supplies",
        .device_name = "Power supply",
        .type = 12,
        .description = 26,
        .count = &safte_config::psus,
        .out_of_range = "Power supply number out of range",
        .read = read_psu,
    },
    {
        .id = "temp",
        .name = "Temperature",
        .device_name = "Temperature sensor",
        .type = TYPE_REAL_CONTINUOUS,
        .unit = "C",
        .description = 11,
        .count = &safte_config::temps,
        .out_of_range = "Temperature sensor number out of range",
        .read = read_temp,
    },
};

static const safte_kind *find_kind(const char *id) {
    for (const safte_kind &kind : KINDS)
        if (text_equal(kind.id, id)) return &kind;
    return nullptr;
}

// ---- scan

static dump_line printable(const uint8_t *bytes) {
    dump_line line = {};
    for (uint32_t i = 0; i < 8; i++)
        line.text[i] = bytes[i] >= ' ' && bytes[i] <= '~' ? static_cast<char>(bytes[i]) : '.';
    return line;
}

static void dump_inquiry(const uint8_t *reply) {
    if (!log_shows(LOG_TRACE)) return;
    agent_log(LOG_TRACE, "SCSI inquiry returned:");
    for (const uint8_t *at = reply; at < reply + SAFTE_INQUIRY_SIZE; at += 8)
        agent_log(LOG_TRACE, "%02X %02X %02X %02X %02X %02X %02X %02X %s", at[0], at[1], at[2], at[3], at[4],
                  at[5], at[6], at[7], printable(at).text);
}

static devnode *new_part(const safte_kind &kind, uint32_t index) {
    char id[INDEX_NAME_SIZE];
    char name[INDEX_NAME_SIZE];
    snprintf(id, sizeof id, "%u", index);
    snprintf(name, sizeof name, "%s %u", kind.device_name, index);
    return new_scan_device(
        {.id = id, .name = name, .type = kind.type, .unit = kind.unit, .description = kind.description});
}

static const char *offer_kind(devtree *enclosure, const safte_kind &kind, uint32_t count) {
    devnode *parts = nullptr;
    for (uint32_t index = 0; index < count; index++)
        put_in_front(&parts, new_part(kind, index));
    return offer_devices(enclosure, kind.id, kind.name, KIND_TEMPLATE, GROUP_OF_INSTANCES, parts);
}

static const char *offer_enclosure(devtree *root, const char *name, const safte_config &config) {
    devtree *top = devtree_child(root, "safte", "SCSI enclosures");
    if (top == nullptr) return "Couldn't allocate devtree_child mem";
    top->group_flags |= GROUP_OF_INSTANCES;
    devtree *enclosure = devtree_child(top, name, name);
    if (enclosure == nullptr) return "Couldn't allocate devtree_child mem";
    for (const safte_kind &kind : KINDS) {
        uint32_t count = config.*kind.count;
        if (count == 0) continue;
        if (auto *failure = offer_kind(enclosure, kind, count)) return failure;
    }
    return nullptr;
}

static const char *probe_open_device(devtree *root, scsi_dev *device, const char *name) {
    uint8_t inquiry[SAFTE_INQUIRY_SIZE] = {};
    if (auto *failure = inquire(device, inquiry)) return failure;
    dump_inquiry(inquiry);
    if (!is_safte_inquiry(inquiry)) return nullptr;
    uint8_t reply[SAFTE_CONFIG_SIZE] = {};
    if (auto *failure = read_enclosure_config(device, reply)) return failure;
    safte_config config;
    decode_safte_config(reply, &config);
    agent_log(LOG_DETAIL, "SAFTE device %s: %d slots, %d fans, %d PSUs, %d temp sensors", name, config.slots,
              config.fans, config.psus, config.temps);
    return offer_enclosure(root, name, config);
}

static void probe_device(devtree *root, const char *name) {
    agent_log(LOG_DETAIL, "Probing SCSI device %s for SAFTE capability", name);
    scsi_dev *opened = nullptr;
    if (auto *failure = open_scsi_dev(&opened, name)) {
        agent_log(LOG_DETAIL, "Error probing %s for SAFTE: %s", name, failure);
        return;
    }
    scsi_dev_guard device(opened);
    if (auto *failure = probe_open_device(root, opened, name))
        agent_log(LOG_WARNING, "Error probing %s for SAFTE: %s", name, failure);
}

const char *scan_safte(devtree *root) {
    scsi_scan *scan = nullptr;
    for (const char *name = find_first_scsi_dev(&scan); name != nullptr; name = find_next_scsi_dev(scan))
        probe_device(root, name);
    end_scsi_scan(scan);
    return nullptr;
}

// ---- check

static uint32_t address_of(const scsi_dev *device) {
    return static_cast<uint32_t>(device->port) << 24 | static_cast<uint32_t>(device->path) << 16 |
           static_cast<uint32_t>(device->target) << 8 | device->lun;
}

static bool is_trusted(uint32_t address) {
    for (const trusted_enclosure *entry = trusted_enclosures; entry != nullptr; entry = entry->next)
        if (entry->address == address) return true;
    return false;
}

// Where memory is out the enclosure is learned at a later check.
static void trust(uint32_t address) {
    auto *entry = heap_new<trusted_enclosure>();
    if (entry == nullptr) return;
    *entry = {.address = address, .next = trusted_enclosures};
    trusted_enclosures = entry;
}

static bool any_slot_is_active(const safte_config &config, const safte_slots &status) {
    for (uint32_t i = 0; i < config.slots; i++)
        if (safte_slot_is_active(status.slots[i])) return true;
    return false;
}

static bool activation_is_trusted(const scsi_dev *device, const safte_config &config,
                                  const safte_slots &status) {
    if (config_in_force->safte_assume_active != 0) return false;
    if (config_in_force->safte_assume_inactive != 0) return true;
    uint32_t address = address_of(device);
    if (is_trusted(address)) return true;
    if (!any_slot_is_active(config, status)) return false;
    trust(address);
    return true;
}

// A number that equals the count passes here and below; the read then falls on the 0 behind the last entry.
static const char *check_slot(scsi_dev *device, const safte_kind &kind, const safte_config &config,
                              uint32_t number, resnode *result) {
    safte_slots status;
    if (auto *failure = read_slots(device, config, &status)) return failure;
    if (number > config.slots) return kind.out_of_range;
    bool trusted = activation_is_trusted(device, config, status);
    safte_value value = safte_slot_value(status.slots[number], trusted);
    result->value = value.value;
    result->comment = text_copy(value.comment);
    return nullptr;
}

static const char *check_part(scsi_dev *device, const char *kind_id, const safte_config &config,
                              uint32_t number, resnode *result) {
    const safte_kind *kind = find_kind(kind_id);
    if (kind != nullptr && kind->read == nullptr) return check_slot(device, *kind, config, number, result);
    safte_status status;
    if (auto *failure = read_status(device, config, &status)) return failure;
    if (kind == nullptr) return format_error("Unknown SAFTE type: \"%s\"", kind_id);
    if (number > config.*kind->count) return kind->out_of_range;
    return kind->read(config, status, number, result);
}

static const char *check_open_device(scsi_dev *device, const char *enclosure, const char *kind,
                                     uint32_t number, resnode *result) {
    uint8_t inquiry[SAFTE_INQUIRY_SIZE] = {};
    if (auto *failure = inquire(device, inquiry))
        return format_error("Device %s SCSI error: %s", enclosure, failure);
    if (!is_safte_inquiry(inquiry)) return format_error("Device %s no longer supports SAFTE", enclosure);
    uint8_t reply[SAFTE_CONFIG_SIZE] = {};
    if (auto *failure = read_enclosure_config(device, reply)) return failure;
    safte_config config;
    decode_safte_config(reply, &config);
    return check_part(device, kind, config, number, result);
}

const char *check_safte(devnode *device, resnode *result) {
    devtree *groups[3];
    if (group_path(device->parent, groups, 3) != 3) return "Unimplemented";
    const char *id = device->id;
    uint32_t number = 0;
    if (!read_number(&id, &number)) return format_error("sscanf failed for string \"%s\"", device->id);
    const char *enclosure = groups[1]->id;
    scsi_dev *opened = nullptr;
    if (auto *failure = open_scsi_dev(&opened, enclosure))
        return format_error("Device %s SCSI error: %s", enclosure, failure);
    scsi_dev_guard held(opened);
    return check_open_device(opened, enclosure, groups[2]->id, number, result);
}

void safte_reset() {
    while (trusted_enclosures != nullptr) {
        trusted_enclosure *next = trusted_enclosures->next;
        heap_free(trusted_enclosures);
        trusted_enclosures = next;
    }
}
