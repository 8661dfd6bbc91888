#include "custom/custom_ops.h"
#include "platform/heap.h"
#include "platform/text.h"
#include "platform/threads.h"
#include "platform/waits.h"

#include "platform/owner_only_win32.h"

#include <cstdio>
#include <windows.h>

struct output_pipe {
    HANDLE file;
    HANDLE arrived;   // a read that had to wait has its answer; absent at a write end
    HANDLE cancelled; // no read is to go on; absent at a write end
};

struct started_program {
    HANDLE process;
    HANDLE job; // absent where the host allows none
};

static constexpr DWORD PIPE_ROOM = 4096;

static HANDLE handle_of(waitable *object) {
    return reinterpret_cast<HANDLE>(object);
}

static void close_keeping_error(HANDLE handle) {
    DWORD error = GetLastError();
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
    SetLastError(error);
}

// ---- errors, clock, events, thread

static void set_error_mode(uint32_t mode) {
    SetErrorMode(mode);
}

static uint64_t system_time() {
    ULONGLONG units = 0;
    QueryUnbiasedInterruptTime(&units);
    return units;
}

static waitable *create_event() {
    return waits_ops_host.CreateEventA(false, false);
}

static bool set_event(waitable *event) {
    return SetEvent(handle_of(event));
}

static bool reset_event(waitable *event) {
    return ResetEvent(handle_of(event));
}

static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    waitable *thread = threads_ops_host.CreateThread(body, argument);
    if (thread != nullptr) threads_ops_host.ResumeThread(thread);
    return thread;
}

static uint32_t wait_for(waitable *object, uint32_t milliseconds) {
    return WaitForSingleObject(handle_of(object), milliseconds);
}

static void close_handle(waitable *object) {
    close_keeping_error(handle_of(object));
}

// ---- the pipe

static void close_pipe(output_pipe *end) {
    if (end == nullptr) return;
    close_keeping_error(end->file);
    close_keeping_error(end->arrived);
    close_keeping_error(end->cancelled);
    heap_free(end);
}

using pipe_guard = guard<output_pipe, close_pipe>;

static bool open_ends(output_pipe *read_end, output_pipe *write_end) {
    static unsigned long made;
    char name[64];
    snprintf(name, sizeof name, "\\\\.\\pipe\\Tarnix-custom-%lu-%lu", GetCurrentProcessId(), ++made);
    owner_only only;
    if (!only.made()) return false;
    SECURITY_ATTRIBUTES heritable = *only.attributes();
    heritable.bInheritHandle = TRUE;
    read_end->file = CreateNamedPipeA(
        name, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
        PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, 0, PIPE_ROOM, 0, &heritable);
    if (read_end->file == INVALID_HANDLE_VALUE) return false;
    write_end->file = CreateFileA(name, GENERIC_WRITE, 0, &heritable, OPEN_EXISTING, 0, nullptr);
    return write_end->file != INVALID_HANDLE_VALUE;
}

// The host waits for a pipe and something else at once only where the pipe has a name. That is nobody else's
// business: there is one of it, it has one client, and this process is the first to open it.
static bool create_pipe(output_pipe **out_read, output_pipe **out_write) {
    pipe_guard read_end(heap_new<output_pipe>());
    pipe_guard write_end(heap_new<output_pipe>());
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    if (read_end == nullptr || write_end == nullptr) return false;
    if (!open_ends(read_end.get(), write_end.get())) return false;
    read_end->arrived = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    read_end->cancelled = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (read_end->arrived == nullptr || read_end->cancelled == nullptr) return false;
    *out_read = read_end.release();
    *out_write = write_end.release();
    return true;
}

static bool duplicate_handle(output_pipe **end) {
    HANDLE copy = nullptr;
    HANDLE self = GetCurrentProcess();
    if (!DuplicateHandle(self, (*end)->file, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS)) return false;
    CloseHandle((*end)->file);
    (*end)->file = copy;
    return true;
}

// Waits for a read under way, or ends it when reads are cancelled.
static bool finish_read(output_pipe *end, OVERLAPPED *read, DWORD *got) {
    HANDLE objects[] = {end->arrived, end->cancelled};
    bool cancelled = WaitForMultipleObjects(2, objects, FALSE, INFINITE) != WAIT_OBJECT_0;
    if (cancelled) CancelIoEx(end->file, read);
    return GetOverlappedResult(end->file, read, got, TRUE);
}

static bool read_pipe(output_pipe *end, void *buffer, uint32_t size, uint32_t *out_length,
                      uint32_t *out_error) {
    OVERLAPPED read = {};
    DWORD got = 0;
    read.hEvent = end->arrived;
    bool done = ReadFile(end->file, buffer, size, &got, &read);
    if (!done && GetLastError() == ERROR_IO_PENDING) done = finish_read(end, &read, &got);
    *out_length = got;
    *out_error = done ? 0 : GetLastError();
    return done;
}

static void cancel_reads(output_pipe *end) {
    SetEvent(end->cancelled);
}

// ---- the program

static constexpr DWORD FLAGS = NORMAL_PRIORITY_CLASS | CREATE_NO_WINDOW | CREATE_DEFAULT_ERROR_MODE;

namespace {

// What a program gets of this process's handles: one end of a pipe, whatever else could be inherited.
struct inheritance {
    HANDLE end;
    guard<void, heap_free> room;

    explicit inheritance(HANDLE of) : end(of) {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        room.reset(heap_alloc(size));
        if (room == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        } else if (!InitializeProcThreadAttributeList(list(), 1, 0, &size)) {
            room.reset();
        } else if (!UpdateProcThreadAttribute(list(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, &end, sizeof end,
                                              nullptr, nullptr)) {
            DeleteProcThreadAttributeList(list());
            room.reset();
        }
    }
    ~inheritance() {
        DWORD error = GetLastError();
        if (room != nullptr) DeleteProcThreadAttributeList(list());
        SetLastError(error);
    }
    inheritance(const inheritance &) = delete;
    LPPROC_THREAD_ATTRIBUTE_LIST list() const {
        return static_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(room.get());
    }
};

} // namespace

static bool create_with_output(char *command, HANDLE output, PROCESS_INFORMATION *out) {
    inheritance own(output);
    if (own.room == nullptr) return false;
    STARTUPINFOEXA start = {};
    start.lpAttributeList = own.list();
    start.StartupInfo.cb = sizeof start;
    start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    start.StartupInfo.hStdOutput = output;
    start.StartupInfo.hStdError = output;
    return CreateProcessA(nullptr, command, nullptr, nullptr, TRUE,
                          FLAGS | EXTENDED_STARTUPINFO_PRESENT | CREATE_SUSPENDED, nullptr, nullptr,
                          &start.StartupInfo, out);
}

// A program and what it starts can be killed together only in a job, which it enters before its first
// instruction. The job's end is nobody's end: what lives on behind the program's own does so.
static HANDLE put_into_job(HANDLE process) {
    HANDLE job = CreateJobObjectA(nullptr, nullptr);
    if (job == nullptr || AssignProcessToJobObject(job, process)) return job;
    CloseHandle(job);
    return nullptr;
}

static bool start_with_output(char *command, HANDLE output, started_program **out) {
    guard<started_program, heap_free> program(heap_new<started_program>());
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    PROCESS_INFORMATION process = {};
    if (program == nullptr || !create_with_output(command, output, &process)) return false;
    *program = {.process = process.hProcess, .job = put_into_job(process.hProcess)};
    ResumeThread(process.hThread);
    CloseHandle(process.hThread);
    *out = program.release();
    return true;
}

static bool start_without_output(char *command) {
    STARTUPINFOA start = {.cb = sizeof start};
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(nullptr, command, nullptr, nullptr, FALSE, FLAGS, nullptr, nullptr, &start, &process))
        return false;
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
}

// The host writes into the command line while it looks at it.
static bool create_process(const char *command, const char *const *, output_pipe *output,
                           started_program **out) {
    text_guard line(text_copy(command));
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    if (line == nullptr) return false;
    return output != nullptr ? start_with_output(line.get(), output->file, out)
                             : start_without_output(line.get());
}

static uint32_t wait_for_process(started_program *program, uint32_t milliseconds) {
    return WaitForSingleObject(program->process, milliseconds);
}

static void terminate_process(started_program *program, uint32_t exit_code) {
    if (program->job != nullptr) TerminateJobObject(program->job, exit_code);
    TerminateProcess(program->process, exit_code);
}

static bool exit_code_of(started_program *program, uint32_t *out) {
    DWORD code = 0;
    bool known = GetExitCodeProcess(program->process, &code);
    *out = code;
    return known;
}

static void close_process(started_program *program) {
    close_keeping_error(program->process);
    close_keeping_error(program->job);
    heap_free(program);
}

const custom_ops custom_ops_host = {
    .SetErrorMode = set_error_mode,
    .GetSystemTime = system_time,
    .CreateEventA = create_event,
    .SetEvent = set_event,
    .ResetEvent = reset_event,
    .CreateThread = create_thread,
    .WaitForSingleObject = wait_for,
    .CloseHandle = close_handle,
    .CreatePipe = create_pipe,
    .DuplicateHandle = duplicate_handle,
    .ReadFile = read_pipe,
    .CancelIoEx = cancel_reads,
    .ClosePipe = close_pipe,
    .takes_words = false,
    .CreateProcessA = create_process,
    .WaitForProcess = wait_for_process,
    .TerminateProcess = terminate_process,
    .GetExitCodeProcess = exit_code_of,
    .CloseProcess = close_process,
};
