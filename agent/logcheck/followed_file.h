// A log file that is open for reading, with the failure of a read kept until somebody asks.
#pragma once

#include "platform/files.h"

struct followed_file {
    host_file handle;
    uint32_t error; // of a failed read; 0 for none
};

// Only a regular file is opened, and nothing is waited for. False with the reason in `*out_reason`, which
// lives as long as that of last_error_text().
bool open_followed(const char *path, followed_file *out, const char **out_reason);
void close_followed(followed_file *log);

// Reads until `size` bytes are there, the file ends or a read fails. Returns the count.
size_t read_followed(followed_file *log, char *buffer, size_t size);

// Reads `size` bytes at `offset`. Where a seek fails, the position stays as it was.
size_t read_followed_at(followed_file *log, int64_t offset, char *buffer, size_t size);
