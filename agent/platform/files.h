// Files as the host gives them, and what a few rooms need of them together.
#pragma once

#include <cstddef>
#include <cstdint>

// A file that the host has opened.
using host_file = intptr_t;
inline constexpr host_file NO_FILE = -1;

enum file_mode {
    FILE_READ,    // an existing file
    FILE_APPEND,  // at the end of a file that is made where it is missing
    FILE_WRITE,   // an existing file, or a new one; what it holds stays
    FILE_REPLACE, // emptied or made, readable by its owner alone
};

// What a position counts from.
enum file_origin { FROM_START, FROM_END };

struct file_facts {
    bool regular;
    uint64_t volume; // with `number` the identity of the file on this host
    uint64_t number;
    int64_t size;
};

// Each call that fails leaves its reason in last_error().
struct files_ops {
    host_file stderr_handle;

    host_file (*open)(const char *path, file_mode mode);
    // The count that came, 0 at the end, -1 on failure.
    int64_t (*read)(host_file file, void *buffer, size_t size);
    int64_t (*write)(host_file file, const void *buffer, size_t size);
    // Moves to `offset` bytes from the origin; a file may be longer than 32 bits can say.
    bool (*seek64)(host_file file, int64_t offset, file_origin origin);
    // Where the next read starts, -1 on failure.
    int64_t (*tell64)(host_file file);
    bool (*sync)(host_file file);
    bool (*close)(host_file file);
    bool (*facts_of)(host_file file, file_facts *out);
    bool (*facts_at)(const char *path, file_facts *out);

    // Renames. Fails where `to` exists.
    bool (*MoveFileA)(const char *from, const char *to);
    // Renames, replacing what is at `to`; on return the name itself is on the disk.
    bool (*MoveFileExA)(const char *from, const char *to);
    bool (*DeleteFileA)(const char *path);
    // Makes the folder, its owner alone may enter it; the folders above must exist.
    bool (*CreateDirectoryA)(const char *path);
    // Lets the file be run as a program. Optional: absent where any file may be.
    bool (*make_executable)(const char *path);

    // Seconds since 1970 of the creation of the file at `path`: 0 when it cannot be opened, -1 when its file
    // system keeps no such time.
    int64_t (*creation_time)(const char *path);
    // Counts the age of the file at `path` from now on. It may make the file for that; a host on which a new
    // file is born with the present time has nothing to do.
    void (*restart_age)(const char *path);

    // The bytes that divide a path into folders. Optional: '/' where it is absent.
    const char *separators;
};

extern const files_ops files_ops_host;
extern const files_ops *files_host;

// Writes the whole buffer, however many calls that takes.
bool file_write_all(host_file file, const void *buffer, size_t size);

// The whole file as a new zero-terminated text, or absent: unreadable, or longer than `limit` bytes.
// `*out_length`, if wanted, is its length, since a file may hold zero bytes.
char *file_read_text(const char *path, size_t limit, size_t *out_length);

// Makes the folders above `path` that are missing. A failure shows when the file itself is opened.
void file_make_folders(const char *path);

// What follows the last separator of the path: the whole path where there is none.
const char *file_name_of(const char *path);

// Seconds since 1970 of the file's creation: 0 when it cannot be opened, the present time when the host knows
// none.
int64_t file_creation_time(const char *path);
