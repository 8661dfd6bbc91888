#include "probes/hw/kernel_smart.h"

const smart_ops smart_ops_host = {
    .CreateFileA = kernel_smart_open,
    .DeviceIoControl = kernel_smart_control,
    .CloseHandle = kernel_smart_close,
    .foreign_kind = kernel_smart_foreign_kind,
};
