#include "probes/hw/kernel_scsi.h"

const scsi_ops scsi_ops_host = {
    .CreateFileA = kernel_scsi_open,
    .DeviceIoControl = kernel_scsi_control,
    .CloseHandle = kernel_scsi_close,
};
