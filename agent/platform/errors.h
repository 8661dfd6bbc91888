// Failure texts: a function returns absent on success and a message text on failure, which nobody frees.
#pragma once

#include <cstdint>

// What a host knows about its own errors.
struct error_ops {
    // The code of the calling thread's last failed call.
    uint32_t (*GetLastError)();
    // Writes the host's words for `code`, at most `size` bytes with their end. False, with `*out_error` set,
    // where the host has no words.
    bool (*FormatMessageA)(uint32_t code, char *buffer, uint32_t size, uint32_t *out_error);
};

extern const error_ops error_ops_host;
extern const error_ops *error_host;

// Formats a failure text, cut at 256 bytes. Each thread has two buffers, used in turn: a text is valid until
// the second next call, and may be an argument of the next one.
const char *format_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The host's words for a system error, line ends cut. Valid until the thread's next call.
const char *error_text(uint32_t code);
const char *last_error_text();
uint32_t last_error();
