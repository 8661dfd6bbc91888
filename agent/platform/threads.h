// Threads beside the main one. A thread is a waitable: signalled when it has ended, closed by CloseHandle.
#pragma once

#include <cstdint>

struct waitable;

inline constexpr int32_t THREAD_PRIORITY_IDLE = -15;
inline constexpr uint32_t STILL_ACTIVE = 259; // the exit code of a thread that has not ended

struct threads_ops {
    // A new thread, suspended, or absent where the host has no more. What `body` returns is its exit code.
    waitable *(*CreateThread)(uint32_t (*body)(void *argument), void *argument);
    // Of a suspended thread.
    bool (*SetThreadPriority)(waitable *thread, int32_t priority);
    bool (*ResumeThread)(waitable *thread);
    bool (*GetExitCodeThread)(waitable *thread, uint32_t *out);
    // Waits for its end, without limit. The thread must have been resumed.
    void (*WaitForSingleObject)(waitable *thread);
};

extern const threads_ops threads_ops_host;
extern const threads_ops *threads_host;
