#include "launcher/command_line.h"
#include "launcher/launcher_ops.h"
#include "launcher/service_win32.h"
#include "platform/errors.h"
#include "platform/heap.h"

#include <cstring>
#include <type_traits>

namespace {

constexpr const char *DISPLAY_NAME = "Tarnix Agent";
char description[] = "Watches this host for a Tarnix server, and keeps its own program up to date.";

// The events of launcher and agent have one source. The launcher is the file with its texts, since the
// agent's program could not be replaced while somebody reads events.
constexpr const char *EVENT_SOURCE = "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\Tarnix";
constexpr DWORD EVENT_TYPES = EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE;

constexpr DWORD MINUTE_MS = 60'000;
constexpr DWORD DAY_S = 86'400;
constexpr DWORD LOOK_AGAIN_MS = 100;

using service_handle = guard<std::remove_pointer_t<SC_HANDLE>, CloseServiceHandle>;

const char *failed(const char *what) {
    return format_error("cannot %s: %s", what, last_error_text());
}

// ---- the event source

const char *set_value(HKEY key, const char *name, DWORD type, const void *value, size_t size) {
    SetLastError(static_cast<DWORD>(
        RegSetValueExA(key, name, 0, type, static_cast<const BYTE *>(value), static_cast<DWORD>(size))));
    return last_error() == ERROR_SUCCESS ? nullptr : failed("register the source of events");
}

const char *register_source(const char *message_file) {
    HKEY key;
    SetLastError(static_cast<DWORD>(RegCreateKeyA(HKEY_LOCAL_MACHINE, EVENT_SOURCE, &key)));
    if (last_error() != ERROR_SUCCESS) return failed("register the source of events");
    const char *failure =
        set_value(key, "EventMessageFile", REG_EXPAND_SZ, message_file, strlen(message_file) + 1);
    if (failure == nullptr)
        failure = set_value(key, "TypesSupported", REG_DWORD, &EVENT_TYPES, sizeof EVENT_TYPES);
    RegCloseKey(key);
    return failure;
}

const char *remove_source() {
    SetLastError(static_cast<DWORD>(RegDeleteKeyA(HKEY_LOCAL_MACHINE, EVENT_SOURCE)));
    bool gone = last_error() == ERROR_SUCCESS || last_error() == ERROR_FILE_NOT_FOUND;
    return gone ? nullptr : failed("remove the source of events");
}

// ---- the service

// What a service can do without is not worth a failure.
void configure(SC_HANDLE service, DWORD what, void *value, const char *words) {
    if (!ChangeServiceConfig2A(service, what, value)) launcher_host->tell(false, failed(words));
}

void configure(SC_HANDLE service) {
    SERVICE_DESCRIPTIONA text = {.lpDescription = description};
    configure(service, SERVICE_CONFIG_DESCRIPTION, &text, "describe the service");

    SERVICE_DELAYED_AUTO_START_INFO delayed = {.fDelayedAutostart = TRUE};
    configure(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO, &delayed, "have the service started late");

    SERVICE_PRESHUTDOWN_INFO shutdown = {.dwPreshutdownTimeout = STOP_LIMIT_MS};
    configure(service, SERVICE_CONFIG_PRESHUTDOWN_INFO, &shutdown, "have a shutdown wait for the service");

    SC_ACTION starts[] = {{SC_ACTION_RESTART, MINUTE_MS},
                          {SC_ACTION_RESTART, 5 * MINUTE_MS},
                          {SC_ACTION_RESTART, 15 * MINUTE_MS}};
    SERVICE_FAILURE_ACTIONSA actions = {.dwResetPeriod = DAY_S, .cActions = 3, .lpsaActions = starts};
    configure(service, SERVICE_CONFIG_FAILURE_ACTIONS, &actions, "have the service started again");

    SERVICE_FAILURE_ACTIONS_FLAG always = {.fFailureActionsOnNonCrashFailures = TRUE};
    configure(service, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &always,
              "have it started again behind any failure");
}

SC_HANDLE create_service(SC_HANDLE manager, const char *line) {
    // Who wants to have a service started again must be allowed to start it.
    constexpr DWORD RIGHTS = SERVICE_CHANGE_CONFIG | SERVICE_START;
    SC_HANDLE made = CreateServiceA(manager, SERVICE_NAME, DISPLAY_NAME, RIGHTS, SERVICE_WIN32_OWN_PROCESS,
                                    SERVICE_AUTO_START, SERVICE_ERROR_NORMAL, line, nullptr, nullptr, nullptr,
                                    nullptr, nullptr);
    if (made != nullptr || last_error() != ERROR_SERVICE_EXISTS) return made;
    service_handle old(OpenServiceA(manager, SERVICE_NAME, RIGHTS));
    if (old == nullptr) return nullptr;
    bool changed =
        ChangeServiceConfigA(old.get(), SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                             line, nullptr, nullptr, nullptr, nullptr, nullptr, DISPLAY_NAME);
    return changed ? old.release() : nullptr;
}

bool has_stopped(SC_HANDLE service) {
    SERVICE_STATUS status;
    return !QueryServiceStatus(service, &status) || status.dwCurrentState == SERVICE_STOPPED;
}

const char *stop_service(SC_HANDLE service) {
    SERVICE_STATUS status;
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status) && has_stopped(service)) return nullptr;
    for (DWORD waited = 0; waited < STOP_LIMIT_MS; waited += LOOK_AGAIN_MS) {
        if (has_stopped(service)) return nullptr;
        Sleep(LOOK_AGAIN_MS);
    }
    return "the service does not stop";
}

const char *remove_service() {
    service_handle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (manager == nullptr) return failed("ask the service manager");
    service_handle service(
        OpenServiceA(manager.get(), SERVICE_NAME, SERVICE_STOP | SERVICE_QUERY_STATUS | DELETE));
    if (service == nullptr) return failed("find the service");
    if (auto *failure = stop_service(service.get())) return failure;
    return DeleteService(service.get()) ? nullptr : failed("remove the service");
}

} // namespace

const char *install_win32(const char *const *words) {
    text_guard line(join_words(words));
    if (line == nullptr) return "out of memory";
    service_handle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE | SC_MANAGER_CONNECT));
    if (manager == nullptr) return failed("ask the service manager");
    service_handle service(create_service(manager.get(), line.get()));
    if (service == nullptr) return failed("register the service");
    configure(service.get());
    if (auto *failure = register_source(words[0])) return failure;
    launcher_host->tell(false, format_error("the service %s is registered", SERVICE_NAME));
    return nullptr;
}

const char *uninstall_win32() {
    if (auto *failure = remove_service()) return failure;
    if (auto *failure = remove_source()) return failure;
    launcher_host->tell(false, format_error("the service %s is removed", SERVICE_NAME));
    return nullptr;
}
