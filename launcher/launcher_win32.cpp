#include "launcher/launcher_ops.h"

#include "launcher/command_line.h"
#include "launcher/service_win32.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"
#include "platform/owner_only_win32.h"

#include <aclapi.h>
#include <cstdio>

namespace {

// What the agent may say ahead of the launcher's hearing it; without room its writes would wait for that.
constexpr DWORD PIPE_ROOM = 64;

// Handles have no more than 32 bits that count, whatever the size of the type.
HANDLE handle_of(int64_t number) {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(number));
}

int32_t number_of(HANDLE handle) {
    return static_cast<int32_t>(reinterpret_cast<intptr_t>(handle));
}

void close_keeping_error(HANDLE handle) {
    DWORD error = GetLastError();
    CloseHandle(handle);
    SetLastError(error);
}

int64_t host_now() {
    return static_cast<int64_t>(GetTickCount64());
}

void host_tell(bool trouble, const char *text) {
    fprintf(stderr, "tnlauncher: %s\n", text);
    fflush(stderr);
    if (trouble) event_report(text, 0);
}

// ---- the folder

bool host_default_folder(char *buffer, size_t size) {
    char data[MAX_PATH];
    DWORD got = GetEnvironmentVariableA("ProgramData", data, sizeof data);
    if (got == 0 || got >= sizeof data) return false;
    int length = snprintf(buffer, size, "%s\\Tarnix\\program", data);
    return static_cast<size_t>(length) < size;
}

bool host_full_path(const char *path, char *buffer, size_t size) {
    DWORD length = GetFullPathNameA(path, static_cast<DWORD>(size), buffer, nullptr);
    return length > 0 && length < size;
}

bool is_own_user(PSID user) {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
    alignas(TOKEN_USER) char room[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
    DWORD size = 0;
    bool same = GetTokenInformation(token, TokenUser, room, sizeof room, &size) &&
                EqualSid(reinterpret_cast<TOKEN_USER *>(room)->User.Sid, user);
    CloseHandle(token);
    return same;
}

// Among the data of all programs anybody may make a folder, and put a program of his own there.
bool belongs_to_somebody_else(const char *path) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetNamedSecurityInfoA(path, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr,
                              nullptr, &descriptor) != ERROR_SUCCESS)
        return false; // entering it fails in its own words
    bool trusted = IsWellKnownSid(owner, WinLocalSystemSid) ||
                   IsWellKnownSid(owner, WinBuiltinAdministratorsSid) || is_own_user(owner);
    LocalFree(descriptor);
    return !trusted;
}

bool host_enter_folder(const char *path) {
    if (!belongs_to_somebody_else(path)) return SetCurrentDirectoryA(path);
    SetLastError(ERROR_INVALID_OWNER);
    return false;
}

// It stays open, and shared with nobody, as long as the process lives.
bool host_lock_folder(const char *name) {
    return CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                       nullptr) != INVALID_HANDLE_VALUE;
}

// ---- the pipes

bool make_heritable(HANDLE end) {
    return SetHandleInformation(end, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
}

bool make_pipe_to_agent(agent_pipes *out) {
    HANDLE ends[2];
    if (!CreatePipe(&ends[0], &ends[1], nullptr, 0)) return false;
    out->agent_read = number_of(ends[0]);
    out->write = number_of(ends[1]);
    if (make_heritable(ends[0])) return true;
    close_keeping_error(ends[0]);
    close_keeping_error(ends[1]);
    return false;
}

// The host waits for what comes from a pipe only where that has a name, which is nobody else's business:
// there is one of it, it has one client, and this process is the first to open it or gets no pipe.
bool make_pipe_from_agent(agent_pipes *out) {
    static unsigned long made;
    char name[64];
    snprintf(name, sizeof name, "\\\\.\\pipe\\Tarnix-launcher-%lu-%lu", GetCurrentProcessId(), ++made);
    owner_only only;
    if (!only.made()) return false;
    HANDLE mine = CreateNamedPipeA(
        name, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, 0, PIPE_ROOM, 0, only.attributes());
    if (mine == INVALID_HANDLE_VALUE) return false;
    HANDLE agents = CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (agents != INVALID_HANDLE_VALUE && make_heritable(agents)) {
        out->read = number_of(mine);
        out->agent_write = number_of(agents);
        return true;
    }
    if (agents != INVALID_HANDLE_VALUE) close_keeping_error(agents);
    close_keeping_error(mine);
    return false;
}

bool host_make_pipes(agent_pipes *out) {
    if (!make_pipe_to_agent(out)) return false;
    if (make_pipe_from_agent(out)) return true;
    close_keeping_error(handle_of(out->agent_read));
    close_keeping_error(handle_of(out->write));
    return false;
}

void host_close_end(int32_t end) {
    CloseHandle(handle_of(end));
}

bool host_write_byte(int32_t end, uint8_t byte) {
    DWORD written = 0;
    return WriteFile(handle_of(end), &byte, 1, &written, nullptr) && written == 1;
}

// ---- the agent

// What a new process gets of this one's handles: the two ends, whatever else could be inherited.
struct inheritance {
    HANDLE ends[2];
    guard<void, heap_free> room;

    explicit inheritance(const agent_pipes &pipes)
        : ends{handle_of(pipes.agent_read), handle_of(pipes.agent_write)} {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        room.reset(heap_alloc(size));
        if (room == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        } else if (!InitializeProcThreadAttributeList(list(), 1, 0, &size) ||
                   !UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, ends, sizeof ends,
                                              nullptr, nullptr)) {
            room.reset();
        }
    }
    LPPROC_THREAD_ATTRIBUTE_LIST list() const {
        return static_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room.get());
    }
};

// The agent gets a console without a window for itself: a key that ends the launcher is not to end the agent
// too, which stops in order. Its streams are nobody's: what it has to say is in its log and in the host's. No
// job holds it, since the end of its pipe is all that an agent without a launcher needs, and a job would end
// it in the midst of what it does.
bool host_start(const char *const *words, const agent_pipes *pipes, int64_t *out_process) {
    inheritance own(*pipes);
    if (own.room == nullptr) return false;
    text_guard line(join_words(words));
    if (line == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    STARTUPINFOEXA start = {.lpAttributeList = own.list()};
    start.StartupInfo.cb = sizeof start;
    start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION process = {};
    bool started = line != nullptr && CreateProcessA(words[0], line.get(), nullptr, nullptr, TRUE,
                                                     EXTENDED_STARTUPINFO_PRESENT | CREATE_NO_WINDOW, nullptr,
                                                     nullptr, &start.StartupInfo, &process);
    DWORD error = GetLastError();
    DeleteProcThreadAttributeList(own.list());
    if (started) CloseHandle(process.hThread);
    SetLastError(error);
    *out_process = number_of(process.hProcess);
    return started;
}

void host_kill(int64_t process) {
    TerminateProcess(handle_of(process), 1);
}

launcher_event forget(int64_t process) {
    DWORD status = 0;
    GetExitCodeProcess(handle_of(process), &status);
    CloseHandle(handle_of(process));
    return {.kind = EVENT_EXIT, .status = static_cast<int32_t>(status)};
}

// ---- the wait

// One byte that is waited for. What was not there in time is called back, and stays in the pipe.
class byte_read {
public:
    explicit byte_read(int32_t end) : end_(handle_of(end)) {
        static HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        call_.hEvent = event;
        begun_ =
            end != 0 && (ReadFile(end_, &byte_, 1, nullptr, &call_) || GetLastError() == ERROR_IO_PENDING);
        failed_ = end != 0 && !begun_;
        if (failed_) SetEvent(event);
    }
    byte_read(const byte_read &) = delete;
    byte_read &operator=(const byte_read &) = delete;

    HANDLE event() const { return call_.hEvent; }

    // What the pipe has said, EVENT_TIMEOUT for nothing.
    launcher_event end() {
        if (failed_) return {.kind = EVENT_PIPE_END};
        if (!begun_) return {.kind = EVENT_TIMEOUT};
        DWORD got = 0;
        CancelIoEx(end_, &call_);
        if (GetOverlappedResult(end_, &call_, &got, TRUE) && got == 1)
            return {.kind = EVENT_BYTE, .byte = byte_};
        bool called_back = GetLastError() == ERROR_OPERATION_ABORTED;
        return {.kind = called_back ? EVENT_TIMEOUT : EVENT_PIPE_END};
    }

private:
    HANDLE end_;
    OVERLAPPED call_ = {};
    uint8_t byte_ = 0;
    bool begun_;
    bool failed_;
};

bool is_signalled(HANDLE object) {
    return WaitForSingleObject(object, 0) == WAIT_OBJECT_0;
}

launcher_event host_wait(int32_t read_end, int64_t process, int64_t milliseconds) {
    // Asked ahead of the pipe, so that an agent that never ends to speak cannot keep a stop away.
    if (is_signalled(stop_wanted())) return {.kind = EVENT_STOP};
    byte_read byte(read_end);
    HANDLE objects[3] = {stop_wanted()};
    DWORD count = 1;
    if (read_end != 0) objects[count++] = byte.event();
    if (process != 0) objects[count++] = handle_of(process);
    DWORD limit = milliseconds == WAIT_FOR_EVER ? INFINITE : static_cast<DWORD>(milliseconds);
    bool stopped = WaitForMultipleObjects(count, objects, FALSE, limit) == WAIT_OBJECT_0;
    // An agent that has ended says nothing more: what comes here is all there was.
    bool ended = process != 0 && is_signalled(handle_of(process));
    launcher_event said = byte.end();
    if (said.kind != EVENT_TIMEOUT) {
        if (stopped) SetEvent(stop_wanted()); // told next time
        return said;
    }
    if (stopped) return {.kind = EVENT_STOP};
    return ended ? forget(process) : said;
}

} // namespace

const launcher_ops launcher_ops_host = {
    .serve = serve_win32,
    .now_ms = host_now,
    .tell = host_tell,
    .install = install_win32,
    .uninstall = uninstall_win32,
    .default_folder = host_default_folder,
    .full_path = host_full_path,
    .enter_folder = host_enter_folder,
    .lock_folder = host_lock_folder,
    .make_pipes = host_make_pipes,
    .close_end = host_close_end,
    .write_byte = host_write_byte,
    .start = host_start,
    .kill = host_kill,
    .wait = host_wait,
};
