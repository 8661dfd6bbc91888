// Opening devices and sending them controls, for the host answers of this room. An open device is its handle
// in the clothes of the operation table's own type.
#pragma once

#include <cstdint>
#include <windows.h>

template <class Device>
HANDLE handle_of(Device *device) {
    return reinterpret_cast<HANDLE>(device);
}

// An existing one, shared for reading and writing.
template <class Device>
Device *open_device(const char *path, uint32_t access) {
    HANDLE handle =
        CreateFileA(path, access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    return handle != INVALID_HANDLE_VALUE ? reinterpret_cast<Device *>(handle) : nullptr;
}

template <class Device>
void close_device(Device *device) {
    CloseHandle(handle_of(device));
}

template <class Device>
BOOL control_device(Device *device, uint32_t control, const uint8_t *input, uint32_t input_size,
                    uint8_t *output, uint32_t output_size, uint32_t *out_returned) {
    DWORD returned = 0;
    BOOL done = DeviceIoControl(handle_of(device), control, const_cast<uint8_t *>(input), input_size, output,
                                output_size, &returned, nullptr);
    *out_returned = returned;
    return done;
}
