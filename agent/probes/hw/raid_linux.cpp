#include "probes/hw/kernel_raid.h"

const raid_ops raid_ops_host = {
    .CreateFileA = kernel_raid_open,
    .DeviceIoControl = kernel_raid_control,
    .CloseHandle = kernel_raid_close,
};
