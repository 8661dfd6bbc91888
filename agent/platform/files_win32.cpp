#include "platform/files.h"

#include "platform/owner_only_win32.h"

#include <algorithm>
#include <climits>
#include <windows.h>

namespace {

constexpr host_file STDERR_FILE = static_cast<int32_t>(STD_ERROR_HANDLE);

// A log can be read, moved away and deleted while the agent writes to it.
constexpr DWORD SHARED = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct mode_row {
    DWORD access;
    DWORD disposition;
};

constexpr mode_row modes[] = {
    {GENERIC_READ, OPEN_EXISTING},                 // FILE_READ
    {FILE_APPEND_DATA | SYNCHRONIZE, OPEN_ALWAYS}, // FILE_APPEND
    {GENERIC_WRITE, OPEN_ALWAYS},                  // FILE_WRITE
    {GENERIC_WRITE | WRITE_DAC, CREATE_ALWAYS},    // FILE_REPLACE
};

// Hundreds of nanoseconds from 1601, where the host's time begins, to 1970.
constexpr uint64_t YEAR_1970 = 0x19DB1DED53E8000;
constexpr uint64_t TICKS_OF_A_SECOND = 10'000'000;

} // namespace

static HANDLE handle_of(host_file file) {
    return file == STDERR_FILE ? GetStdHandle(STD_ERROR_HANDLE) : reinterpret_cast<HANDLE>(file);
}

static void close_keeping_error(HANDLE handle) {
    DWORD error = GetLastError();
    CloseHandle(handle);
    SetLastError(error);
}

static host_file host_open(const char *path, file_mode mode) {
    HANDLE file = CreateFileA(path, modes[mode].access, SHARED, nullptr, modes[mode].disposition,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return NO_FILE;
    // What was there before would keep its permissions.
    if (mode != FILE_REPLACE || restrict_to_owner(file)) return reinterpret_cast<host_file>(file);
    close_keeping_error(file);
    return NO_FILE;
}

static DWORD length_of(size_t size) {
    return static_cast<DWORD>(std::min(size, size_t{INT_MAX}));
}

static int64_t host_read(host_file file, void *buffer, size_t size) {
    DWORD got = 0;
    return ReadFile(handle_of(file), buffer, length_of(size), &got, nullptr) ? int64_t{got} : -1;
}

static int64_t host_write(host_file file, const void *buffer, size_t size) {
    DWORD written = 0;
    return WriteFile(handle_of(file), buffer, length_of(size), &written, nullptr) ? int64_t{written} : -1;
}

static bool host_seek(host_file file, int64_t offset, file_origin origin) {
    LARGE_INTEGER distance;
    distance.QuadPart = offset;
    return SetFilePointerEx(handle_of(file), distance, nullptr, origin == FROM_START ? FILE_BEGIN : FILE_END);
}

static int64_t host_tell(host_file file) {
    LARGE_INTEGER nowhere = {};
    LARGE_INTEGER position;
    return SetFilePointerEx(handle_of(file), nowhere, &position, FILE_CURRENT) ? position.QuadPart : -1;
}

static bool host_sync(host_file file) {
    return FlushFileBuffers(handle_of(file));
}

static bool host_close(host_file file) {
    return CloseHandle(handle_of(file));
}

static bool facts_from(HANDLE file, file_facts *out) {
    BY_HANDLE_FILE_INFORMATION found;
    if (!GetFileInformationByHandle(file, &found)) return false;
    bool folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    *out = {.regular = !folder && GetFileType(file) == FILE_TYPE_DISK,
            .volume = found.dwVolumeSerialNumber,
            .number = uint64_t{found.nFileIndexHigh} << 32 | found.nFileIndexLow,
            .size = static_cast<int64_t>(uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow)};
    return true;
}

// Opens a file or a folder for what can be asked about it, which every other user of it allows.
static HANDLE open_attributes(const char *path, DWORD sharing) {
    return CreateFileA(path, FILE_READ_ATTRIBUTES, sharing, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

static bool facts_of(host_file file, file_facts *out) {
    return facts_from(handle_of(file), out);
}

static bool facts_at(const char *path, file_facts *out) {
    HANDLE file = open_attributes(path, SHARED);
    if (file == INVALID_HANDLE_VALUE) return false;
    bool found = facts_from(file, out);
    close_keeping_error(file);
    return found;
}

static bool move_file(const char *from, const char *to) {
    return MoveFileA(from, to);
}

static bool move_file_replacing(const char *from, const char *to) {
    return MoveFileExA(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

static bool delete_file(const char *path) {
    return DeleteFileA(path);
}

static bool create_directory(const char *path) {
    owner_only only;
    return only.made() && CreateDirectoryA(path, only.attributes());
}

static int64_t creation_time(const char *path) {
    HANDLE file = open_attributes(path, FILE_SHARE_READ);
    if (file == INVALID_HANDLE_VALUE) return 0;
    FILETIME created = {};
    bool known = GetFileTime(file, &created, nullptr, nullptr);
    CloseHandle(file);
    uint64_t ticks = uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime;
    if (!known || ticks == 0) return -1;
    return static_cast<int64_t>((ticks - YEAR_1970) / TICKS_OF_A_SECOND);
}

// A file that takes the name of one just renamed gets the creation time of that one from the host.
static void restart_age(const char *path) {
    HANDLE file = CreateFileA(path, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;
    SYSTEMTIME now;
    FILETIME created;
    GetSystemTime(&now);
    if (SystemTimeToFileTime(&now, &created)) SetFileTime(file, &created, nullptr, nullptr);
    CloseHandle(file);
}

const files_ops files_ops_host = {
    .stderr_handle = STDERR_FILE,
    .open = host_open,
    .read = host_read,
    .write = host_write,
    .seek64 = host_seek,
    .tell64 = host_tell,
    .sync = host_sync,
    .close = host_close,
    .facts_of = facts_of,
    .facts_at = facts_at,
    .MoveFileA = move_file,
    .MoveFileExA = move_file_replacing,
    .DeleteFileA = delete_file,
    .CreateDirectoryA = create_directory,
    .creation_time = creation_time,
    .restart_age = restart_age,
    .separators = "\\/",
};
