#include "logcheck/event_log_ops.h"

#include <windows.h>

static HANDLE handle_of(event_log *log) {
    return reinterpret_cast<HANDLE>(log);
}

// A module that is loaded as data has a handle and no more.
static HMODULE handle_of(message_module *module) {
    return reinterpret_cast<HMODULE>(module);
}

static event_log *open_log(const char *name) {
    return reinterpret_cast<event_log *>(OpenEventLogA(nullptr, name));
}

static bool oldest_record(event_log *log, uint32_t *out_number) {
    DWORD number = 0;
    if (!GetOldestEventLogRecord(handle_of(log), &number)) return false;
    *out_number = number;
    return true;
}

static bool number_of_records(event_log *log, uint32_t *out_count) {
    DWORD count = 0;
    if (!GetNumberOfEventLogRecords(handle_of(log), &count)) return false;
    *out_count = count;
    return true;
}

static bool read_log(event_log *log, uint32_t flags, uint32_t record, uint8_t *buffer, uint32_t size,
                     uint32_t *out_read, uint32_t *out_needed) {
    DWORD read = 0;
    DWORD needed = 0;
    bool success = ReadEventLogW(handle_of(log), flags, record, buffer, size, &read, &needed);
    *out_read = read;
    *out_needed = needed;
    return success;
}

static void close_log(event_log *log) {
    CloseEventLog(handle_of(log));
}

static bool lookup_account(const uint8_t *sid, char *user, uint32_t user_size, char *domain,
                           uint32_t domain_size) {
    DWORD user_length = user_size;
    DWORD domain_length = domain_size;
    SID_NAME_USE use = SidTypeUnknown;
    return LookupAccountSidA(nullptr, const_cast<uint8_t *>(sid), user, &user_length, domain, &domain_length,
                             &use);
}

static uint32_t expand_strings(const char *text, char *out, uint32_t size) {
    return ExpandEnvironmentStringsA(text, out, size);
}

static message_module *load_library(const char *path, uint32_t flags) {
    return reinterpret_cast<message_module *>(LoadLibraryExA(path, nullptr, flags));
}

static void free_library(message_module *module) {
    FreeLibrary(handle_of(module));
}

static uint32_t format_message(uint32_t flags, message_module *module, uint32_t id, char16_t *out,
                               uint32_t size, const char16_t *const *arguments) {
    // An array in the place of an argument list, as its flag says.
    auto *list = reinterpret_cast<va_list *>(const_cast<char16_t **>(arguments));
    return FormatMessageW(flags, handle_of(module), id, 0, reinterpret_cast<wchar_t *>(out), size, list);
}

static char16_t *format_message_allocating(uint32_t flags, message_module *module, uint32_t id) {
    wchar_t *text = nullptr;
    auto *slot = reinterpret_cast<wchar_t *>(&text); // as the flag for allocating wants it
    if (FormatMessageW(flags, handle_of(module), id, 0, slot, 0, nullptr) == 0) return nullptr;
    return reinterpret_cast<char16_t *>(text);
}

static void local_free(char16_t *text) {
    LocalFree(text);
}

static bool wide_to_multi_byte(uint32_t code_page, const char16_t *text, char *out, uint32_t size) {
    return WideCharToMultiByte(code_page, 0, reinterpret_cast<const wchar_t *>(text), -1, out,
                               static_cast<int>(size), nullptr, nullptr) != 0;
}

const event_log_ops event_log_ops_host = {
    .OpenEventLogA = open_log,
    .GetOldestEventLogRecord = oldest_record,
    .GetNumberOfEventLogRecords = number_of_records,
    .ReadEventLogW = read_log,
    .CloseEventLog = close_log,
    .LookupAccountSidA = lookup_account,
    .ExpandEnvironmentStringsA = expand_strings,
    .LoadLibraryExA = load_library,
    .FreeLibrary = free_library,
    .FormatMessageW = format_message,
    .FormatMessageW_allocating = format_message_allocating,
    .LocalFree = local_free,
    .WideCharToMultiByte = wide_to_multi_byte,
};
