#include "platform/threads.h"

#include "platform/crash_linux.h"
#include "platform/heap.h"
#include "platform/waits_linux.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <unistd.h>

static constexpr size_t STACK_SIZE = 1024 * 1024; // of addresses; what is not touched costs nothing

struct thread_state {
    pthread_t thread;
    sem_t released;
    bool resumed;
    std::atomic<bool> cancelled; // closed before it was resumed
    std::atomic<uint32_t> exit_code;
    uint32_t (*body)(void *argument);
    void *argument;
};

static void *run(void *argument) {
    auto *object = static_cast<waitable *>(argument);
    thread_state *state = object->thread;
    while (sem_wait(&state->released) != 0) {
    }
    if (state->cancelled) return nullptr;
    state->exit_code = state->body(state->argument);
    signal_descriptor(object->file);
    return nullptr;
}

// The signals of the process are the main thread's: a new thread is born with all of them blocked but those
// of its own faults.
static bool start(waitable *object) {
    pthread_attr_t attributes;
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    for (int number : FAULT_SIGNALS)
        sigdelset(&blocked, number);
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    int error = pthread_create(&object->thread->thread, &attributes, run, object);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error == 0;
}

static void free_thread(waitable *object) {
    if (object->file >= 0) close(object->file);
    sem_destroy(&object->thread->released);
    heap_free(object->thread);
    heap_free(object);
}

static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    guard<waitable, heap_free> object(heap_new<waitable>());
    if (object == nullptr) return nullptr;
    object->thread = heap_new<thread_state>();
    if (object->thread == nullptr) return nullptr;
    object->thread->body = body;
    object->thread->argument = argument;
    object->thread->exit_code = STILL_ACTIVE;
    sem_init(&object->thread->released, 0, 0);
    object->watched = -1;
    object->file = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (object->file >= 0 && start(object.get())) return object.release();
    free_thread(object.release());
    return nullptr;
}

static bool set_priority(waitable *object, int32_t priority) {
    sched_param parameters = {};
    int policy = priority == THREAD_PRIORITY_IDLE ? SCHED_IDLE : SCHED_OTHER;
    return pthread_setschedparam(object->thread->thread, policy, &parameters) == 0;
}

static bool resume(waitable *object) {
    object->thread->resumed = true;
    return sem_post(&object->thread->released) == 0;
}

static bool exit_code_of(waitable *object, uint32_t *out) {
    *out = object->thread->exit_code;
    return true;
}

// Its end is told by the descriptor, not by a join, which belongs to the close.
static void wait_for_end(waitable *object) {
    static constexpr uint32_t LONG = 3600 * 1000;
    while (waits_ops_host.WaitForMultipleObjects(1, &object, LONG) == WAIT_OBJECT_TIMEOUT) {
    }
}

void close_thread(waitable *object) {
    thread_state *state = object->thread;
    if (!state->resumed) {
        state->cancelled = true;
        sem_post(&state->released);
    }
    pthread_join(state->thread, nullptr);
    free_thread(object);
}

const threads_ops threads_ops_host = {
    .CreateThread = create_thread,
    .SetThreadPriority = set_priority,
    .ResumeThread = resume,
    .GetExitCodeThread = exit_code_of,
    .WaitForSingleObject = wait_for_end,
};
