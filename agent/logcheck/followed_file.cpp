#include "logcheck/followed_file.h"

#include "platform/errors.h"

#include <cstring>

static bool is_regular(host_file file) {
    file_facts facts;
    return files_host->facts_of(file, &facts) && facts.regular;
}

bool open_followed(const char *path, followed_file *out, const char **out_reason) {
    file_facts facts;
    // The mere opening of a device may set it going.
    bool found = files_host->facts_at(path, &facts);
    host_file file = found && facts.regular ? files_host->open(path, FILE_READ) : NO_FILE;
    if (file == NO_FILE) {
        *out_reason = found && !facts.regular ? "not a regular file" : last_error_text();
        return false;
    }
    if (!is_regular(file)) {
        files_host->close(file);
        *out_reason = "not a regular file";
        return false;
    }
    *out = {.handle = file, .error = 0};
    return true;
}

void close_followed(followed_file *log) {
    files_host->close(log->handle);
}

size_t read_followed(followed_file *log, char *buffer, size_t size) {
    size_t count = 0;
    while (count < size) {
        int64_t got = files_host->read(log->handle, buffer + count, size - count);
        if (got < 0) log->error = last_error();
        if (got <= 0) break;
        count += static_cast<size_t>(got);
    }
    return count;
}

size_t read_followed_at(followed_file *log, int64_t offset, char *buffer, size_t size) {
    static_cast<void>(files_host->seek64(log->handle, offset, FROM_START));
    return read_followed(log, buffer, size);
}
