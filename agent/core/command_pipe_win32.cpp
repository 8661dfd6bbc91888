#include "core/command_pipe_ops.h"
#include "platform/heap.h"

#include <windows.h>

namespace {

constexpr const char *PIPE_NAME = "\\\\.\\pipe\\Tarnix-agent-command";
constexpr DWORD MESSAGE_SIZE = 1024;
constexpr DWORD READ_WAIT = 1000; // milliseconds

} // namespace

struct command_pipe {
    HANDLE handle;
    OVERLAPPED arrival; // of the next client, while it is waited for
    HANDLE done;        // of the other calls on the agent's end; absent for a client's, which just block
};

static void close_pipe(command_pipe *pipe) {
    CloseHandle(pipe->handle);
    if (pipe->done != nullptr) CloseHandle(pipe->done);
    heap_free(pipe);
}

// Waits for a call that was begun. What does not end in time is called back.
static bool finish(command_pipe *pipe, OVERLAPPED *call, DWORD limit, DWORD *out_count) {
    if (WaitForSingleObject(pipe->done, limit) != WAIT_TIMEOUT)
        return GetOverlappedResult(pipe->handle, call, out_count, TRUE);
    CancelIoEx(pipe->handle, call);
    if (GetOverlappedResult(pipe->handle, call, out_count, TRUE)) return true; // it came meanwhile
    if (GetLastError() == ERROR_OPERATION_ABORTED) SetLastError(WAIT_ENDED);
    return false;
}

// ---- the agent's end

static command_pipe *create_pipe() {
    guard<command_pipe, heap_free> pipe(heap_new<command_pipe>());
    if (pipe == nullptr) return nullptr;
    pipe->done = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (pipe->done == nullptr) return nullptr;
    SetLastError(ERROR_SUCCESS);
    pipe->handle =
        CreateNamedPipeA(PIPE_NAME, PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                         PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, PIPE_UNLIMITED_INSTANCES,
                         MESSAGE_SIZE, MESSAGE_SIZE, 0, nullptr);
    if (pipe->handle != INVALID_HANDLE_VALUE) return pipe.release();
    DWORD error = GetLastError();
    CloseHandle(pipe->done);
    SetLastError(error);
    return nullptr;
}

static bool connect_pipe(command_pipe *pipe, waitable *event) {
    if (event != nullptr) {
        pipe->arrival = {};
        pipe->arrival.hEvent = reinterpret_cast<HANDLE>(event);
        return ConnectNamedPipe(pipe->handle, &pipe->arrival);
    }
    OVERLAPPED call = {};
    call.hEvent = pipe->done;
    DWORD none = 0;
    if (ConnectNamedPipe(pipe->handle, &call)) return true;
    return GetLastError() == ERROR_IO_PENDING && finish(pipe, &call, INFINITE, &none);
}

// Returns when the client has read everything, or is gone.
static void flush(command_pipe *pipe) {
    FlushFileBuffers(pipe->handle);
}

static bool disconnect(command_pipe *pipe) {
    return DisconnectNamedPipe(pipe->handle);
}

// ---- both ends

static bool read_message(command_pipe *pipe, char *buffer, size_t size, uint32_t *out_count) {
    DWORD got = 0;
    OVERLAPPED call = {};
    call.hEvent = pipe->done;
    OVERLAPPED *overlapped = pipe->done != nullptr ? &call : nullptr;
    bool done = ReadFile(pipe->handle, buffer, static_cast<DWORD>(size), &got, overlapped);
    if (!done && GetLastError() == ERROR_IO_PENDING) done = finish(pipe, &call, READ_WAIT, &got);
    *out_count = got;
    return done;
}

static bool write_message(command_pipe *pipe, const char *text, size_t length, uint32_t *out_count) {
    DWORD written = 0;
    OVERLAPPED call = {};
    call.hEvent = pipe->done;
    OVERLAPPED *overlapped = pipe->done != nullptr ? &call : nullptr;
    bool done = WriteFile(pipe->handle, text, static_cast<DWORD>(length), &written, overlapped);
    if (!done && GetLastError() == ERROR_IO_PENDING) done = finish(pipe, &call, INFINITE, &written);
    *out_count = written;
    return done;
}

// ---- a client's end

// Whoever holds the pipe learns who asks, and no more.
static command_pipe *open_client() {
    guard<command_pipe, heap_free> pipe(heap_new<command_pipe>());
    if (pipe == nullptr) return nullptr;
    pipe->handle = CreateFileA(PIPE_NAME, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
    if (pipe->handle == INVALID_HANDLE_VALUE) return nullptr;
    DWORD mode = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe->handle, &mode, nullptr, nullptr);
    return pipe.release();
}

static void show_box(const char *title, const char *text, bool exclamation) {
    MessageBoxA(nullptr, text, title, exclamation ? MB_ICONEXCLAMATION : MB_OK);
}

const command_pipe_ops command_pipe_ops_host = {
    .CreateNamedPipeA = create_pipe,
    .ConnectNamedPipe = connect_pipe,
    .ReadFile = read_message,
    .WriteFile = write_message,
    .FlushFileBuffers = flush,
    .DisconnectNamedPipe = disconnect,
    .CloseHandle = close_pipe,
    .CreateFileA = open_client,
    .MessageBoxA = show_box,
};
