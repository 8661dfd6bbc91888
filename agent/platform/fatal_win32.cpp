#include "platform/fatal.h"

#include <cstdlib>
#include <windows.h>

static void *register_source(const char *source) {
    return RegisterEventSourceA(nullptr, source);
}

static void report(void *source, bool error, uint32_t event_id, const char *message) {
    WORD type = error ? EVENTLOG_ERROR_TYPE : EVENTLOG_INFORMATION_TYPE;
    ReportEventA(source, type, 0, event_id, nullptr, 1, 0, &message, nullptr);
}

static void deregister_source(void *source) {
    DeregisterEventSource(source);
}

static void host_exit(int status) {
    exit(status);
}

static uint32_t process_id() {
    return GetCurrentProcessId();
}

static bool program_path(char *buffer, size_t size) {
    DWORD length = GetModuleFileNameA(nullptr, buffer, static_cast<DWORD>(size));
    buffer[size - 1] = '\0'; // old hosts leave a path that does not fit without an end
    return length > 0;
}

const event_ops event_ops_host = {
    .RegisterEventSourceA = register_source,
    .ReportEventA = report,
    .DeregisterEventSource = deregister_source,
};
const process_ops process_ops_host = {
    .exit = host_exit,
    .GetCurrentProcessId = process_id,
    .GetModuleFileNameA = program_path,
    .program_suffix = ".exe",
};
