#include "platform/threads.h"

#include "platform/heap.h"

#include <windows.h>

namespace {

struct thread_start {
    uint32_t (*body)(void *argument);
    void *argument;
};

} // namespace

static HANDLE handle_of(waitable *thread) {
    return reinterpret_cast<HANDLE>(thread);
}

static DWORD WINAPI run(void *argument) {
    auto *start = static_cast<thread_start *>(argument);
    thread_start own = *start;
    heap_free(start);
    return own.body(own.argument);
}

// One that is closed before it was resumed stays as it is until the process ends.
static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    guard<thread_start, heap_free> start(heap_new<thread_start>());
    if (start == nullptr) return nullptr;
    *start = {.body = body, .argument = argument};
    HANDLE thread = CreateThread(nullptr, 0, run, start.get(), CREATE_SUSPENDED, nullptr);
    if (thread != nullptr) static_cast<void>(start.release());
    return reinterpret_cast<waitable *>(thread);
}

static bool set_priority(waitable *thread, int32_t priority) {
    return SetThreadPriority(handle_of(thread), priority);
}

static bool resume(waitable *thread) {
    return ResumeThread(handle_of(thread)) != static_cast<DWORD>(-1);
}

static bool exit_code_of(waitable *thread, uint32_t *out) {
    DWORD code = 0;
    bool known = GetExitCodeThread(handle_of(thread), &code);
    *out = code;
    return known;
}

static void wait_for_end(waitable *thread) {
    WaitForSingleObject(handle_of(thread), INFINITE);
}

const threads_ops threads_ops_host = {
    .CreateThread = create_thread,
    .SetThreadPriority = set_priority,
    .ResumeThread = resume,
    .GetExitCodeThread = exit_code_of,
    .WaitForSingleObject = wait_for_end,
};
