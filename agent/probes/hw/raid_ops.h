// What the RAID checks ask of a host: adapters by port number, and one control on an open one.
#pragma once

#include <cstdint>

// An adapter that the host has opened.
struct raid_adapter;

inline constexpr uint32_t IOCTL_SCSI_MINIPORT_CODE = 0x4D008;
inline constexpr uint32_t RAID_ADAPTER_ACCESS = 0xC0000000; // reading and writing

// Each call that fails leaves its reason in last_error().
struct raid_ops {
    // Opens the existing adapter "\\.\scsi%u:", shared for reading and writing. Absent where that fails.
    raid_adapter *(*CreateFileA)(const char *path, uint32_t access);
    // The block is input and output.
    bool (*DeviceIoControl)(raid_adapter *adapter, uint32_t control, uint8_t *block, uint32_t size);
    void (*CloseHandle)(raid_adapter *adapter);
};

extern const raid_ops raid_ops_host;
extern const raid_ops *raid_host;
