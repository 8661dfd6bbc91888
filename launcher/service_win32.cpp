#include "launcher/service_win32.h"

#include "launcher/launcher_ops.h"
#include "launcher/supervisor.h"
#include "platform/errors.h"

#include <atomic>

// The runtime would put the names of files in the place of words that look like patterns.
extern "C" {
int _dowildcard = 0;
}

const DWORD STOP_LIMIT_MS = PATIENCE_MS + LAST_PATIENCE_MS + 10'000;

namespace {

constexpr DWORD START_LIMIT_MS = 10'000;

int (*body_to_run)();
int result;
HANDLE body_ended;
std::atomic<bool> is_service;

SRWLOCK status_lock = SRWLOCK_INIT; // the service manager's controls come in a thread of their own
SERVICE_STATUS_HANDLE status_handle;
SERVICE_STATUS status;

// Nothing is told behind the end, which may cross a control on its way.
void report(DWORD state, DWORD limit_ms) {
    AcquireSRWLockExclusive(&status_lock);
    if (status.dwCurrentState != SERVICE_STOPPED) {
        status.dwCurrentState = state;
        status.dwControlsAccepted =
            state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_PRESHUTDOWN : 0;
        status.dwCheckPoint = limit_ms != 0 ? status.dwCheckPoint + 1 : 0;
        status.dwWaitHint = limit_ms;
        SetServiceStatus(status_handle, &status);
    }
    ReleaseSRWLockExclusive(&status_lock);
}

// An exit status of the launcher's is no error of the system's, and one that is not 0 is a failure behind
// which the service manager starts the service again.
void report_end() {
    if (result != 0) status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = static_cast<DWORD>(result);
    report(SERVICE_STOPPED, 0);
}

DWORD WINAPI handle_control(DWORD control, DWORD, void *, void *) {
    if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
    if (control != SERVICE_CONTROL_STOP && control != SERVICE_CONTROL_PRESHUTDOWN)
        return ERROR_CALL_NOT_IMPLEMENTED;
    report(SERVICE_STOP_PENDING, STOP_LIMIT_MS);
    SetEvent(stop_wanted());
    return NO_ERROR;
}

void WINAPI run_service(DWORD, char **) {
    is_service = true;
    status = {.dwServiceType = SERVICE_WIN32_OWN_PROCESS, .dwCurrentState = SERVICE_START_PENDING};
    status_handle = RegisterServiceCtrlHandlerExA(SERVICE_NAME, handle_control, nullptr);
    result = 1;
    if (status_handle == nullptr) return;
    report(SERVICE_START_PENDING, START_LIMIT_MS);
    report(SERVICE_RUNNING, 0);
    result = body_to_run();
    report_end();
}

int run_on_console() {
    result = body_to_run();
    SetEvent(body_ended);
    return result;
}

// The process ends as soon as the answer to any but the first two is given. A service hears here of users
// that log off, who are nothing to it; its own stop comes from the service manager.
BOOL WINAPI handle_console(DWORD event) {
    if (is_service) return TRUE;
    SetEvent(stop_wanted());
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) WaitForSingleObject(body_ended, INFINITE);
    return TRUE;
}

} // namespace

HANDLE stop_wanted() {
    static HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    return event;
}

int serve_win32(int (*body)()) {
    // The agent inherits it: a program that cannot be loaded is a failed start, not a question on a screen.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    body_to_run = body;
    body_ended = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(handle_console, TRUE);
    char name[] = "tnagent";
    SERVICE_TABLE_ENTRYA services[] = {{name, run_service}, {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherA(services)) return result;
    if (last_error() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) return run_on_console();
    launcher_host->tell(true, format_error("cannot serve: %s", last_error_text()));
    return 1;
}
