#include "probes/hw/device_io_win32.h"
#include "probes/hw/scsi_layout.h"
#include "probes/hw/scsi_ops.h"

#include <cstddef>
#include <winioctl.h>
// behind the headers that it needs
#include <ntddscsi.h>

static_assert(IOCTL_SCSI_GET_INQUIRY_DATA == IOCTL_SCSI_GET_INQUIRY_DATA_CODE);
static_assert(IOCTL_SCSI_PASS_THROUGH == IOCTL_SCSI_PASS_THROUGH_CODE);
static_assert((GENERIC_READ | GENERIC_WRITE) == GENERIC_READ_WRITE_ACCESS);
static_assert(ERROR_FILE_NOT_FOUND == ERROR_CODE_NO_SUCH_FILE);

static_assert(offsetof(SCSI_ADAPTER_BUS_INFO, BusData) == BUS_TABLE_OFFSET);
static_assert(sizeof(SCSI_BUS_DATA) == BUS_ENTRY_SIZE);
static_assert(offsetof(SCSI_BUS_DATA, InquiryDataOffset) == BUS_ENTRY_FIRST_OFFSET);
static_assert(offsetof(SCSI_INQUIRY_DATA, TargetId) == 1);
static_assert(offsetof(SCSI_INQUIRY_DATA, Lun) == 2);
static_assert(offsetof(SCSI_INQUIRY_DATA, DeviceClaimed) == 3);
static_assert(offsetof(SCSI_INQUIRY_DATA, NextInquiryDataOffset) == DEVICE_ENTRY_NEXT_OFFSET);
static_assert(offsetof(SCSI_INQUIRY_DATA, InquiryData) == DEVICE_ENTRY_SIZE);

static_assert(sizeof(SCSI_PASS_THROUGH) == PASS_THROUGH_SIZE);
static_assert(offsetof(SCSI_PASS_THROUGH, ScsiStatus) == PASS_THROUGH_STATUS_OFFSET);
static_assert(offsetof(SCSI_PASS_THROUGH, PathId) == 3);
static_assert(offsetof(SCSI_PASS_THROUGH, TargetId) == 4);
static_assert(offsetof(SCSI_PASS_THROUGH, Lun) == 5);
static_assert(offsetof(SCSI_PASS_THROUGH, CdbLength) == 6);
static_assert(offsetof(SCSI_PASS_THROUGH, SenseInfoLength) == 7);
static_assert(offsetof(SCSI_PASS_THROUGH, DataIn) == 8);
static_assert(offsetof(SCSI_PASS_THROUGH, DataTransferLength) == PASS_THROUGH_TRANSFER_OFFSET);
static_assert(offsetof(SCSI_PASS_THROUGH, TimeOutValue) == 16);
static_assert(offsetof(SCSI_PASS_THROUGH, DataBufferOffset) == 24);
static_assert(offsetof(SCSI_PASS_THROUGH, SenseInfoOffset) == 32);
static_assert(offsetof(SCSI_PASS_THROUGH, Cdb) == PASS_THROUGH_CDB_OFFSET);

static bool control_adapter(scsi_adapter *adapter, uint32_t control, const uint8_t *input,
                            uint32_t input_size, uint8_t *output, uint32_t output_size,
                            uint32_t *out_returned) {
    return control_device(adapter, control, input, input_size, output, output_size, out_returned) != 0;
}

const scsi_ops scsi_ops_host = {
    .CreateFileA = open_device<scsi_adapter>,
    .DeviceIoControl = control_adapter,
    .CloseHandle = close_device<scsi_adapter>,
};
