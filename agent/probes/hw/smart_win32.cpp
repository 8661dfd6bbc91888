#include "probes/hw/device_io_win32.h"
#include "probes/hw/smart_ops.h"

#include <cstddef>
#include <winioctl.h>

// The command block and the header of a reply, as the platform lays them out.
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs.bFeaturesReg) == 4);
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs.bCommandReg) == 10);
static_assert(offsetof(SENDCMDINPARAMS, bDriveNumber) == 12);
static_assert(offsetof(SENDCMDINPARAMS, bBuffer) == SMART_COMMAND_SIZE);
static_assert(offsetof(SENDCMDOUTPARAMS, bBuffer) == SMART_HEADER_SIZE);
static_assert(SMART_SEND_DRIVE_COMMAND == SMART_SEND_DRIVE_COMMAND_CODE);
static_assert(SMART_RCV_DRIVE_DATA == SMART_RCV_DRIVE_DATA_CODE);
static_assert(GENERIC_ALL == GENERIC_ALL_ACCESS);

static int32_t control_drive(smart_drive *drive, uint32_t control, const uint8_t *input, uint32_t input_size,
                             uint8_t *output, uint32_t output_size) {
    uint32_t returned = 0;
    return control_device(drive, control, input, input_size, output, output_size, &returned);
}

const smart_ops smart_ops_host = {
    .CreateFileA = open_device<smart_drive>,
    .DeviceIoControl = control_drive,
    .CloseHandle = close_device<smart_drive>,
};
