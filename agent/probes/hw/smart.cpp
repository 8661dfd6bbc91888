#include "probes/hw/smart.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/smart_table.h"
#include "settings/settings.h"

#include <cstdio>

const smart_ops *smart_host;

namespace {

constexpr uint32_t TYPE_DRIVE_STATUS = 5;
constexpr uint32_t DESCRIPTION_DRIVE = 10;
constexpr char DEVICE_PREFIX[] = "\\\\.\\";
constexpr size_t NUMBERED_PATH_SIZE = 32;

struct smart_command {
    uint8_t features;
    uint32_t control;
    uint32_t reply_size;
    const char *failure;
    const char *no_memory;
};

constexpr smart_command ENABLE = {
    .features = 0xD8,
    .control = SMART_SEND_DRIVE_COMMAND_CODE,
    .reply_size = SMART_HEADER_SIZE,
    .failure = "SMART not enabled",
};
constexpr smart_command READ_VALUES = {
    .features = 0xD0,
    .control = SMART_RCV_DRIVE_DATA_CODE,
    .reply_size = SMART_REPLY_SIZE,
    .failure = "SMART_READ_ATTRIBUTE_VALUES call failed",
    .no_memory = "Out of memory in smart_read_values",
};
constexpr smart_command READ_THRESHOLDS = {
    .features = 0xD1,
    .control = SMART_RCV_DRIVE_DATA_CODE,
    .reply_size = SMART_REPLY_SIZE,
    .failure = "SMART_READ_THRESHOLDS call failed",
    .no_memory = "Out of memory in smart_read_thresholds",
};
constexpr smart_command RETURN_STATUS = {
    .features = 0xDA,
    .control = SMART_SEND_DRIVE_COMMAND_CODE,
    .reply_size = SMART_HEADER_SIZE,
};

using reply_guard = guard<uint8_t, heap_free>;

} // namespace

// ---- commands

// All that follows in the block is 0, the number of the drive too, for which the handle stands.
static bool send(smart_drive *drive, const smart_command &command, uint8_t *reply) {
    const uint8_t block[SMART_COMMAND_SIZE] = {
        0,
        0,
        0,
        0,                // size of the data that goes out
        command.features, // the sub-command
        1,                // sector count
        1,                // sector number
        0x4F,             // cylinder low
        0xC2,             // cylinder high
        0,                // drive and head
        0xB0,             // the ATA SMART command
    };
    return smart_host->DeviceIoControl(drive, command.control, block, sizeof block, reply,
                                       command.reply_size) == 1;
}

const char *smart_enable(smart_drive *drive) {
    uint8_t reply[SMART_HEADER_SIZE] = {};
    return send(drive, ENABLE, reply) ? nullptr : ENABLE.failure;
}

static const char *read_table(smart_drive *drive, const smart_command &command, uint8_t **out) {
    reply_guard reply(heap_array<uint8_t>(command.reply_size));
    if (reply == nullptr) return command.no_memory;
    if (!send(drive, command, reply.get())) return command.failure;
    *out = reply.release();
    return nullptr;
}

const char *smart_read_values(smart_drive *drive, uint8_t **out) {
    return read_table(drive, READ_VALUES, out);
}

const char *smart_read_thresholds(smart_drive *drive, uint8_t **out) {
    return read_table(drive, READ_THRESHOLDS, out);
}

bool smart_return_status(smart_drive *drive) {
    uint8_t reply[SMART_HEADER_SIZE] = {};
    return send(drive, RETURN_STATUS, reply);
}

// ---- scan

static devnode *new_drive(const char *name) {
    return new_scan_device({.id = name,
                            .name = name,
                            .comment = "IDE S.M.A.R.T.",
                            .type = TYPE_DRIVE_STATUS,
                            .unit = "",
                            .description = DESCRIPTION_DRIVE});
}

static const char *foreign_kind(const smart_drive *drive) {
    return smart_host->foreign_kind != nullptr ? smart_host->foreign_kind(drive) : nullptr;
}

static bool is_capable(smart_drive *drive, const char *path) {
    if (const char *kind = foreign_kind(drive)) {
        agent_log(LOG_DETAIL, "%s is %s, which has no such SMART data", path, kind);
        return false;
    }
    return smart_enable(drive) == nullptr;
}

// False where there is no such drive.
static bool scan_drive(int number, devnode **list) {
    char path[NUMBERED_PATH_SIZE];
    snprintf(path, sizeof path, "%sPhysicalDrive%i", DEVICE_PREFIX, number);
    agent_log(LOG_DETAIL, "Will look at device \"%s\"", path);
    smart_drive *drive = smart_host->CreateFileA(path, GENERIC_ALL_ACCESS);
    if (drive == nullptr) return false;
    bool capable = is_capable(drive, path);
    smart_host->CloseHandle(drive);
    if (!capable) return true;
    agent_log(LOG_DETAIL, "%s is smart-capable", path);
    put_in_front(list, new_drive(path + sizeof DEVICE_PREFIX - 1));
    return true;
}

const char *scan_smart_ide(devtree *root) {
    agent_log(LOG_TRACE, "In scan_smart_ide");
    if (config_in_force->disable_smart != 0) {
        agent_log(LOG_DETAIL, "SMART disabled - will not scan");
        return nullptr;
    }
    devnode *drives = nullptr;
    for (int number = 0; scan_drive(number, &drives); number++) {
    }
    if (drives == nullptr) return nullptr;
    return offer_devices(root, "smart", "SMART status", nullptr, GROUP_OF_INSTANCES, drives);
}

// ---- check

// False where a read fails.
static bool judge_tables(smart_drive *drive, smart_verdict *out) {
    uint8_t *values = nullptr;
    uint8_t *limits = nullptr;
    if (smart_read_values(drive, &values) != nullptr) {
        agent_log(LOG_DETAIL, "Couldn't read attribute values");
        return false;
    }
    reply_guard values_held(values);
    if (smart_read_thresholds(drive, &limits) != nullptr) {
        agent_log(LOG_DETAIL, "Couldn't read attribute thresholds");
        return false;
    }
    reply_guard limits_held(limits);
    smart_attributes attributes;
    smart_thresholds thresholds;
    decode_smart_attributes(values + SMART_HEADER_SIZE, &attributes);
    decode_smart_thresholds(limits + SMART_HEADER_SIZE, &thresholds);
    *out = judge_smart(attributes, thresholds);
    return true;
}

static smart_verdict judge_drive(smart_drive *drive) {
    smart_verdict verdict = DRIVE_OK;
    if (judge_tables(drive, &verdict)) return verdict;
    return smart_return_status(drive) ? DRIVE_OK : DRIVE_FAILING;
}

// A drive of another kind under this number has taken the place of the one that was offered.
static const char *check_drive(smart_drive *drive, const char *id, smart_verdict *out) {
    if (const char *kind = foreign_kind(drive))
        return format_error("Cannot open device %s: it is %s", id, kind);
    *out = judge_drive(drive);
    return nullptr;
}

const char *check_smart(devnode *device, resnode *result) {
    if (config_in_force->disable_smart != 0) {
        agent_log(LOG_DETAIL, "SMART disabled - will not check \"%s\"", device->id);
        result->comment = text_copy("SMART disabled on agent");
        return nullptr;
    }
    char path[sizeof DEVICE_PREFIX + NAME_LIMIT];
    snprintf(path, sizeof path, "%s%s", DEVICE_PREFIX, device->id);
    smart_drive *drive = smart_host->CreateFileA(path, GENERIC_ALL_ACCESS);
    if (drive == nullptr) return format_error("Cannot open device %s: %s", device->id, last_error_text());
    smart_verdict verdict = DRIVE_OK;
    const char *failure = check_drive(drive, device->id, &verdict);
    smart_host->CloseHandle(drive);
    if (failure != nullptr) return failure;
    result->value = verdict;
    result->comment = text_copy(smart_verdict_text(verdict));
    return nullptr;
}
