#include "platform/errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

static uint32_t get_last_error() {
    return static_cast<uint32_t>(errno);
}

static bool format_message(uint32_t code, char *buffer, uint32_t size, uint32_t *out_error) {
    const char *words = strerrordesc_np(static_cast<int>(code));
    if (words == nullptr) {
        *out_error = EINVAL;
        return false;
    }
    snprintf(buffer, size, "%s", words);
    return true;
}

const error_ops error_ops_host = {.GetLastError = get_last_error, .FormatMessageA = format_message};
