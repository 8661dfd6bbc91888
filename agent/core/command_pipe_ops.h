// What the local command channel asks of a host: one well-known pipe that keeps message boundaries and serves
// one client at a time.
//
// A call that fails leaves its code in last_error(); these codes mean the same on every host.
#pragma once

#include <cstddef>
#include <cstdint>

struct waitable;
struct command_pipe; // the agent's end, or a client's

enum : uint32_t {
    ERROR_PIPE_ENDED = 109,     // ERROR_BROKEN_PIPE: the other end has gone
    ERROR_PIPE_IS_BUSY = 231,   // ERROR_PIPE_BUSY: the agent serves another client
    WAIT_ENDED = 258,           // WAIT_TIMEOUT: nothing has come yet
    ERROR_PIPE_IS_OPEN = 535,   // ERROR_PIPE_CONNECTED: a client is there already
    ERROR_PIPE_IS_WAITING = 997 // ERROR_IO_PENDING: the event will tell
};

struct command_pipe_ops {
    // The agent's end. Only the first on a host is made; absent behind a failure.
    command_pipe *(*CreateNamedPipeA)();
    // Waits for a client: with `event`, which is reset now and signalled then, or without one until then.
    // False with a code.
    bool (*ConnectNamedPipe)(command_pipe *pipe, waitable *event);
    // One message, within a second.
    bool (*ReadFile)(command_pipe *pipe, char *buffer, size_t size, uint32_t *out_count);
    bool (*WriteFile)(command_pipe *pipe, const char *text, size_t length, uint32_t *out_count);
    // Returns when the client has what was written.
    void (*FlushFileBuffers)(command_pipe *pipe);
    bool (*DisconnectNamedPipe)(command_pipe *pipe);
    void (*CloseHandle)(command_pipe *pipe);

    // A client's end; absent behind a failure.
    command_pipe *(*CreateFileA)();
    // Whether this code of a failed CreateFileA says that an agent runs but does not serve this caller.
    // Optional: without it a busy pipe alone says so.
    bool (*is_refusal)(uint32_t code);
    // Shows a text until someone has read it. Optional: absent where nobody can be expected to look.
    void (*MessageBoxA)(const char *title, const char *text, bool exclamation);
};

extern const command_pipe_ops command_pipe_ops_host;
extern const command_pipe_ops *command_pipe_host;
