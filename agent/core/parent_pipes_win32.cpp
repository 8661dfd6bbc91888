#include "core/parent_pipes_ops.h"

#include <windows.h>

// Handles have no more than 32 bits that count, whatever the size of the type.
static HANDLE handle_of(int32_t handle) {
    return reinterpret_cast<HANDLE>(intptr_t{handle});
}

// Nothing but the launcher's word ends the read: this host has no signals that could ask for it.
static bool read_byte(int32_t handle, waitable *, uint8_t *out, uint32_t *out_count) {
    DWORD got = 0;
    bool done = ReadFile(handle_of(handle), out, 1, &got, nullptr);
    *out_count = got;
    return done;
}

static bool write_byte(int32_t handle, uint8_t sent, uint32_t *out_count) {
    DWORD written = 0;
    bool done = WriteFile(handle_of(handle), &sent, 1, &written, nullptr);
    *out_count = written;
    return done;
}

const parent_pipe_ops parent_pipe_ops_host = {.ReadFile = read_byte, .WriteFile = write_byte};
