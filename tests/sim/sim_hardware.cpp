#include "sim/sim_hardware.h"

#include "fakes/scripted_scsi.h"
#include "probes/hw/raid_ops.h"
#include "probes/hw/smart_ops.h"
#include "sim/host_sim.h"

#include <cstring>

static constexpr uint32_t CODE_MISSING = 2;
static constexpr uint32_t CODE_INPUT_OUTPUT = 5;

// A device that is there can refuse to be opened, and one that is not there is no call that could fail.
template <class Device>
static Device *open_present(const char *path, bool there) {
    bool refused = there && sim_fails("CreateFileA", path);
    if (!there) sim_note("CreateFileA", path);
    if (there && !refused) {
        the_sim->hardware.open_devices++;
        return reinterpret_cast<Device *>(&the_sim->hardware);
    }
    the_sim->last_error = refused ? CODE_INPUT_OUTPUT : CODE_MISSING;
    return nullptr;
}

template <class Device>
static void close_present(Device *) {
    the_sim->hardware.open_devices--;
}

static bool control_fails(uint32_t control) {
    if (!sim_fails("DeviceIoControl", int64_t{control})) return false;
    the_sim->last_error = CODE_INPUT_OUTPUT;
    return true;
}

static bool is_first(const char *path, const char *first) {
    return the_sim->hardware.present && strcmp(path, first) == 0;
}

// ---- the drive

static smart_drive *open_drive(const char *path, uint32_t) {
    return open_present<smart_drive>(path, is_first(path, "\\\\.\\PhysicalDrive0"));
}

static int32_t control_drive(smart_drive *, uint32_t control, const uint8_t *input, uint32_t, uint8_t *output,
                             uint32_t output_size) {
    if (control_fails(control)) return 0;
    memset(output, 0, output_size);
    if (control != SMART_RCV_DRIVE_DATA_CODE) return 1;
    uint8_t *slot = output + SMART_HEADER_SIZE + 2;
    bool values = input[4] == 0xD0;
    slot[0] = 5;
    slot[1] = values ? 1 : 50;
    slot[3] = values ? the_sim->hardware.drive_value : uint8_t{0};
    return 1;
}

// ---- the enclosure

static scsi_adapter *open_port(const char *path, uint32_t) {
    return open_present<scsi_adapter>(path, is_first(path, "\\\\.\\scsi0:"));
}

static bool answer_enclosure(uint8_t *buffer, uint32_t size) {
    scripted_enclosure enclosure(1, 1, 0, 0);
    enclosure.status[0] = static_cast<char>(the_sim->hardware.fan_status);
    enclosure.slots = std::string("\1\0\0\1", 4);
    scripted_port port = {.units = {enclosure.unit(0, 6)}};
    return scripted_command(port, buffer, size);
}

static bool control_port(scsi_adapter *, uint32_t control, const uint8_t *, uint32_t, uint8_t *output,
                         uint32_t output_size, uint32_t *out_returned) {
    if (control_fails(control)) return false;
    *out_returned = output_size;
    if (control == IOCTL_SCSI_PASS_THROUGH_CODE) return answer_enclosure(output, output_size);
    const scsi_unit unit = {.bus = 0, .target = 6, .lun = 0, .claimed = false};
    encode_inquiry_table(&unit, 1, output);
    return true;
}

// ---- the controller

static raid_adapter *open_adapter(const char *path, uint32_t) {
    return open_present<raid_adapter>(path, is_first(path, "\\\\.\\scsi1:"));
}

static bool control_adapter(raid_adapter *, uint32_t control, uint8_t *block, uint32_t) {
    if (control_fails(control)) return false;
    uint8_t volume = block[41];
    switch (block[46]) {
    case 0x11:
        memcpy(block + 148, "\1\0\0\0\0sim1", 9);
        break;
    case 0x10:
        block[149] = volume == 0 ? 2 : 0;
        break;
    default:
        block[148] = the_sim->hardware.volume_state;
    }
    return true;
}

const smart_ops sim_smart = {
    .CreateFileA = open_drive,
    .DeviceIoControl = control_drive,
    .CloseHandle = close_present<smart_drive>,
};

const scsi_ops sim_scsi = {
    .CreateFileA = open_port,
    .DeviceIoControl = control_port,
    .CloseHandle = close_present<scsi_adapter>,
};

const raid_ops sim_raid = {
    .CreateFileA = open_adapter,
    .DeviceIoControl = control_adapter,
    .CloseHandle = close_present<raid_adapter>,
};
