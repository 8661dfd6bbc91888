#include "platform/errors.h"

#include <windows.h>

static uint32_t get_last_error() {
    return GetLastError();
}

static bool format_message(uint32_t code, char *buffer, uint32_t size, uint32_t *out_error) {
    DWORD options = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (FormatMessageA(options, nullptr, code, 0, buffer, size, nullptr) != 0) return true;
    *out_error = GetLastError();
    return false;
}

const error_ops error_ops_host = {.GetLastError = get_last_error, .FormatMessageA = format_message};
