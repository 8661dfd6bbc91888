// Reading the small files and folders in which Linux tells its own state, for host answers.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

// Reads on from where the file stands, to its end or to the end of the buffer: the bytes that came, -1 on
// failure.
inline int64_t read_to_end(int file, char *buffer, size_t size) {
    size_t length = 0;
    while (length < size) {
        ssize_t got = read(file, buffer + length, size - length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        length += static_cast<size_t>(got);
    }
    return static_cast<int64_t>(length);
}

inline int64_t read_host_file(const char *path, char *buffer, size_t size) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return -1;
    int64_t length = read_to_end(file, buffer, size);
    close(file);
    return length;
}

// The file as a text, cut at the buffer's size.
inline bool read_host_text(const char *path, char *buffer, size_t size) {
    int64_t length = read_host_file(path, buffer, size - 1);
    buffer[length > 0 ? length : 0] = '\0';
    return length >= 0;
}

// The names in a folder, one a line: the bytes that came, `size` where there may be more, -1 on failure.
inline int64_t list_host_folder(const char *path, char *buffer, size_t size) {
    DIR *folder = opendir(path);
    if (folder == nullptr) return -1;
    size_t length = 0;
    while (const dirent *entry = readdir(folder)) {
        size_t name = strlen(entry->d_name);
        if (entry->d_name[0] == '.') continue;
        if (length + name + 1 >= size) {
            length = size;
            break;
        }
        memcpy(buffer + length, entry->d_name, name);
        buffer[length + name] = '\n';
        length += name + 1;
    }
    closedir(folder);
    return static_cast<int64_t>(length);
}
