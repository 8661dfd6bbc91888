// What the event log reader asks of a host: its logs, and the files in which the messages of their records
// are.
//
// A host without event logs has no such table, and `event_log_host` stays absent.
#pragma once

#include <cstdint>

struct event_log;      // an open log
struct message_module; // a loaded file of messages

// How ReadEventLogW reads.
enum : uint32_t { EVENTLOG_SEQUENTIAL_READ = 1, EVENTLOG_SEEK_READ = 2, EVENTLOG_FORWARDS_READ = 4 };

// How LoadLibraryExA loads.
enum : uint32_t { LOAD_LIBRARY_AS_DATAFILE = 2 };

// Where FormatMessageW looks, and what it does with inserts.
enum : uint32_t {
    FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100,
    FORMAT_MESSAGE_IGNORE_INSERTS = 0x200,
    FORMAT_MESSAGE_FROM_HMODULE = 0x800,
    FORMAT_MESSAGE_FROM_SYSTEM = 0x1000,
    FORMAT_MESSAGE_ARGUMENT_ARRAY = 0x2000,
};

inline constexpr uint32_t ISO_8859_1 = 28591; // the code page

// Each call that fails leaves its reason in last_error(). Sizes are in characters, the end of a text
// included.
struct event_log_ops {
    // A log of the local machine, or absent.
    event_log *(*OpenEventLogA)(const char *name);
    bool (*GetOldestEventLogRecord)(event_log *log, uint32_t *out_number);
    bool (*GetNumberOfEventLogRecords)(event_log *log, uint32_t *out_count);
    // Reads whole records, as many as fit. For a buffer that is too small, `*out_needed` is the bytes that
    // the next record takes.
    bool (*ReadEventLogW)(event_log *log, uint32_t flags, uint32_t record, uint8_t *buffer, uint32_t size,
                          uint32_t *out_read, uint32_t *out_needed);
    void (*CloseEventLog)(event_log *log);

    // The account behind a whole security identifier, as the local machine knows it.
    bool (*LookupAccountSidA)(const uint8_t *sid, char *user, uint32_t user_size, char *domain,
                              uint32_t domain_size);
    // The size of the whole result, also where that is more than `size`; 0 for a failure.
    uint32_t (*ExpandEnvironmentStringsA)(const char *text, char *out, uint32_t size);

    // Absent where the file cannot be loaded.
    message_module *(*LoadLibraryExA)(const char *path, uint32_t flags);
    void (*FreeLibrary)(message_module *module);
    // The message in the host's own language, with the arguments in the place of its inserts. The length of
    // the text; 0 for a failure.
    uint32_t (*FormatMessageW)(uint32_t flags, message_module *module, uint32_t id, char16_t *out,
                               uint32_t size, const char16_t *const *arguments);
    // The same with FORMAT_MESSAGE_ALLOCATE_BUFFER: a new text, for LocalFree, or absent.
    char16_t *(*FormatMessageW_allocating)(uint32_t flags, message_module *module, uint32_t id);
    void (*LocalFree)(char16_t *text);

    bool (*WideCharToMultiByte)(uint32_t code_page, const char16_t *text, char *out, uint32_t size);
};

extern const event_log_ops event_log_ops_host;
extern const event_log_ops *event_log_host;
