#include "probes/hw/ciss_layout.h"
#include "probes/hw/device_io_win32.h"
#include "probes/hw/raid_ops.h"

#include <cstddef>
#include <winioctl.h>
// behind the headers that it needs
#include <ntddscsi.h>

static_assert(IOCTL_SCSI_MINIPORT == IOCTL_SCSI_MINIPORT_CODE);
static_assert((GENERIC_READ | GENERIC_WRITE) == RAID_ADAPTER_ACCESS);
static_assert(sizeof(SRB_IO_CONTROL) == CISS_HEADER_LENGTH);
static_assert(offsetof(SRB_IO_CONTROL, Signature) == 4);
static_assert(offsetof(SRB_IO_CONTROL, Timeout) == 12);
static_assert(offsetof(SRB_IO_CONTROL, ControlCode) == 16);
static_assert(offsetof(SRB_IO_CONTROL, ReturnCode) == CISS_RETURN_CODE_OFFSET);
static_assert(offsetof(SRB_IO_CONTROL, Length) == 24);

static bool control_adapter(raid_adapter *adapter, uint32_t control, uint8_t *block, uint32_t size) {
    uint32_t returned = 0;
    return control_device(adapter, control, block, size, block, size, &returned) != 0;
}

const raid_ops raid_ops_host = {
    .CreateFileA = open_device<raid_adapter>,
    .DeviceIoControl = control_adapter,
    .CloseHandle = close_device<raid_adapter>,
};
