// What the SCSI pass-through asks of a host: adapters by port number, and two controls on an open one, in the
// platform's own layouts (scsi_layout.h).
#pragma once

#include <cstdint>

// An adapter that the host has opened.
struct scsi_adapter;

enum : uint32_t {
    IOCTL_SCSI_GET_INQUIRY_DATA_CODE = 0x4100C,
    IOCTL_SCSI_PASS_THROUGH_CODE = 0x4D004,
};

inline constexpr uint32_t GENERIC_READ_WRITE_ACCESS = 0xC0000000;
inline constexpr uint32_t ERROR_CODE_NO_SUCH_FILE = 2; // the same number on every host

// Each call that fails leaves its reason in last_error().
struct scsi_ops {
    // Opens the existing adapter "\\.\scsi%d:", shared for reading and writing. Absent where that fails, with
    // ERROR_CODE_NO_SUCH_FILE where there is no such port; ports are numbered without gaps.
    scsi_adapter *(*CreateFileA)(const char *path, uint32_t access);
    // `*out_returned` are the bytes of the output that came. Input and output may be the same bytes.
    bool (*DeviceIoControl)(scsi_adapter *adapter, uint32_t control, const uint8_t *input,
                            uint32_t input_size, uint8_t *output, uint32_t output_size,
                            uint32_t *out_returned);
    void (*CloseHandle)(scsi_adapter *adapter);
};

extern const scsi_ops scsi_ops_host;
extern const scsi_ops *scsi_host;
