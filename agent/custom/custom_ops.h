// What custom checks and AgentActions ask of a host: a program, the pipe with its output, two events and a
// thread.
//
// A call that fails leaves its reason in last_error().
#pragma once

#include <cstdint>

struct waitable;
struct output_pipe;     // one end
struct started_program; // with all that it starts, as far as the host can tell

// What ends a wait for one object.
enum : uint32_t { OBJECT_SIGNALLED = 0, OBJECT_TIMEOUT = 258, OBJECT_FAILED = 0xFFFFFFFF };

inline constexpr uint32_t WAIT_WITHOUT_LIMIT = 0xFFFFFFFF; // milliseconds
inline constexpr uint32_t ERROR_OUTPUT_ENDED = 109; // ERROR_BROKEN_PIPE: nobody holds the other end any more

struct custom_ops {
    // Which errors of the host ask somebody at a screen. Optional: absent where none does.
    void (*SetErrorMode)(uint32_t mode);
    // Units of 100 nanoseconds, of a clock that only ever goes on, however the host's time is set.
    uint64_t (*GetSystemTime)();

    // An event that a wait resets, not set. Absent behind a failure.
    waitable *(*CreateEventA)();
    bool (*SetEvent)(waitable *event);
    bool (*ResetEvent)(waitable *event);
    // A thread that runs at once. Absent behind a failure.
    waitable *(*CreateThread)(uint32_t (*body)(void *argument), void *argument);
    // Of an event or a thread: OBJECT_SIGNALLED, OBJECT_TIMEOUT, OBJECT_FAILED, or what else the host says.
    uint32_t (*WaitForSingleObject)(waitable *object, uint32_t milliseconds);
    void (*CloseHandle)(waitable *object);

    bool (*CreatePipe)(output_pipe **out_read, output_pipe **out_write);
    // Puts a copy that no program inherits in the place of an end. Optional: absent where none does anyway.
    bool (*DuplicateHandle)(output_pipe **end);
    // What has come, at most `size` bytes; waits for it. False, with `*out_error` set.
    bool (*ReadFile)(output_pipe *end, void *buffer, uint32_t size, uint32_t *out_length,
                     uint32_t *out_error);
    // No read of this end waits from now on; one that does fails.
    void (*CancelIoEx)(output_pipe *end);
    // While nobody reads.
    void (*ClosePipe)(output_pipe *end); // takes absent

    // Whether CreateProcessA takes words; other hosts give the command line as it is to the program.
    bool takes_words;
    // Starts a program in the agent's directory and environment. With `output` it gets that end as its
    // standard output and error, and nothing else of the agent's; without, it is nobody's from now on: only
    // the success is told, by `*out`. `words` is absent on a host that takes none. Absent behind a failure.
    bool (*CreateProcessA)(const char *command, const char *const *words, output_pipe *output,
                           started_program **out);
    // As WaitForSingleObject, for the end of the program.
    uint32_t (*WaitForProcess)(started_program *program, uint32_t milliseconds);
    // Kills the program and what it has started.
    void (*TerminateProcess)(started_program *program, uint32_t exit_code);
    // Behind its end.
    bool (*GetExitCodeProcess)(started_program *program, uint32_t *out);
    // What the program has started, and itself if it has not ended, goes on.
    void (*CloseProcess)(started_program *program);
};

extern const custom_ops custom_ops_host;
extern const custom_ops *custom_host;
