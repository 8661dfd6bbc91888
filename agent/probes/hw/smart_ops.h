// What the SMART checks ask of a host: drives by number, and two controls on an open one.
#pragma once

#include <cstdint>

// A drive that the host has opened.
struct smart_drive;

enum : uint32_t {
    SMART_SEND_DRIVE_COMMAND_CODE = 0x7C084, // 32 bytes in, 16 out
    SMART_RCV_DRIVE_DATA_CODE = 0x7C088, // 32 bytes in, 528 out: 16 of the platform's and 512 of the drive's
};

inline constexpr uint32_t SMART_COMMAND_SIZE = 32;
inline constexpr uint32_t SMART_HEADER_SIZE = 16;
inline constexpr uint32_t SMART_DATA_SIZE = 512;
inline constexpr uint32_t SMART_REPLY_SIZE = SMART_HEADER_SIZE + SMART_DATA_SIZE;
inline constexpr uint32_t GENERIC_ALL_ACCESS = 0x10000000;

// Each call that fails leaves its reason in last_error().
struct smart_ops {
    // Opens an existing drive "\\.\PhysicalDrive%i", shared for reading and writing. Absent where that fails.
    smart_drive *(*CreateFileA)(const char *path, uint32_t access);
    // A success is exactly the value 1.
    int32_t (*DeviceIoControl)(smart_drive *drive, uint32_t control, const uint8_t *input,
                               uint32_t input_size, uint8_t *output, uint32_t output_size);
    void (*CloseHandle)(smart_drive *drive);
    // Why this drive cannot have what the controls ask for, such as "an NVMe drive"; absent for one that may.
    // Optional: absent on a host that can only ask the drive itself.
    const char *(*foreign_kind)(const smart_drive *drive);
};

extern const smart_ops smart_ops_host;
extern const smart_ops *smart_host;
