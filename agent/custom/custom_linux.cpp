#include "custom/custom_ops.h"
#include "custom/program_keeper_linux.h"
#include "custom/quick_event_linux.h"
#include "platform/heap.h"
#include "platform/threads.h"
#include "platform/waits_linux.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

struct output_pipe {
    int file;
    int cancelled; // readable when no read of this end is to go on; -1 at a write end
};

namespace {

// What is waited for here is such an event, or one of the host's threads.
struct handover_event {
    waitable head; // cleared: no thread
    quick_event event;
};

} // namespace

// ---- clock, events, thread

static uint64_t system_time() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 10'000'000 + static_cast<uint64_t>(now.tv_nsec) / 100;
}

static quick_event *event_of(waitable *object) {
    return &reinterpret_cast<handover_event *>(object)->event;
}

static waitable *create_event() {
    auto *event = heap_new<handover_event>();
    errno = ENOMEM;
    return event != nullptr ? &event->head : nullptr;
}

static bool set_event(waitable *event) {
    quick_event_set(event_of(event));
    return true;
}

static bool reset_event(waitable *event) {
    quick_event_reset(event_of(event));
    return true;
}

static waitable *create_thread(uint32_t (*body)(void *argument), void *argument) {
    waitable *thread = threads_ops_host.CreateThread(body, argument);
    if (thread != nullptr) threads_ops_host.ResumeThread(thread);
    return thread;
}

// Of a thread, or of what tells by its descriptor.
static uint32_t wait_on_file(waitable *object, uint32_t milliseconds) {
    int32_t answer = waits_ops_host.WaitForMultipleObjects(1, &object, milliseconds);
    if (answer == WAIT_OBJECT_TIMEOUT) return OBJECT_TIMEOUT;
    return answer == 0 ? OBJECT_SIGNALLED : OBJECT_FAILED;
}

static bool is_event(const waitable *object) {
    return object->thread == nullptr;
}

static uint32_t wait_for(waitable *object, uint32_t milliseconds) {
    if (!is_event(object)) return wait_on_file(object, milliseconds);
    return quick_event_wait(event_of(object), milliseconds) ? OBJECT_SIGNALLED : OBJECT_TIMEOUT;
}

static void close_handle(waitable *object) {
    if (is_event(object))
        heap_free(object);
    else
        waits_ops_host.CloseHandle(object);
}

// ---- the pipe

static void close_pipe(output_pipe *end) {
    if (end == nullptr) return;
    int error = errno;
    if (end->file >= 0) close(end->file);
    if (end->cancelled >= 0) close(end->cancelled);
    heap_free(end);
    errno = error;
}

using pipe_guard = guard<output_pipe, close_pipe>;

static output_pipe *new_end() {
    auto *end = heap_new<output_pipe>();
    if (end != nullptr) *end = {.file = -1, .cancelled = -1};
    return end;
}

// No end is inherited: a program's own process puts the one that it gets in its place. What has come is read
// at once, and a read waits only behind that.
static bool create_pipe(output_pipe **out_read, output_pipe **out_write) {
    pipe_guard read_end(new_end());
    pipe_guard write_end(new_end());
    errno = ENOMEM;
    if (read_end == nullptr || write_end == nullptr) return false;
    int files[2];
    if (pipe2(files, O_CLOEXEC) != 0) return false;
    read_end->file = files[0];
    write_end->file = files[1];
    fcntl(files[0], F_SETFL, O_NONBLOCK);
    read_end->cancelled = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (read_end->cancelled < 0) return false;
    *out_read = read_end.release();
    *out_write = write_end.release();
    return true;
}

// 0 when there may be something to read, or an error.
static int wait_for_output(const output_pipe *end) {
    pollfd files[] = {{.fd = end->file, .events = POLLIN}, {.fd = end->cancelled, .events = POLLIN}};
    if (poll(files, 2, -1) < 0) return errno == EINTR ? 0 : errno;
    return files[1].revents != 0 ? ECANCELED : 0;
}

static bool read_pipe(output_pipe *end, void *buffer, uint32_t size, uint32_t *out_length,
                      uint32_t *out_error) {
    int error = 0;
    while (error == 0) {
        ssize_t got = read(end->file, buffer, size);
        if (got > 0) {
            *out_length = static_cast<uint32_t>(got);
            return true;
        }
        if (got == 0)
            error = ERROR_OUTPUT_ENDED;
        else
            error = errno == EAGAIN || errno == EINTR ? wait_for_output(end) : errno;
    }
    *out_error = static_cast<uint32_t>(error);
    return false;
}

static void cancel_reads(output_pipe *end) {
    signal_descriptor(end->cancelled);
}

// ---- the program

static bool create_process(const char *, const char *const *words, output_pipe *output,
                           started_program **out) {
    if (output == nullptr) return start_released(words);
    *out = start_kept(words, output->file);
    return *out != nullptr;
}

static uint32_t wait_for_process(started_program *program, uint32_t milliseconds) {
    waitable end = {.file = end_of_program(program), .watched = -1, .consumed = false, .thread = nullptr};
    return wait_on_file(&end, milliseconds);
}

static void terminate_process(started_program *program, uint32_t) {
    kill_program_tree(program);
}

const custom_ops custom_ops_host = {
    .GetSystemTime = system_time,
    .CreateEventA = create_event,
    .SetEvent = set_event,
    .ResetEvent = reset_event,
    .CreateThread = create_thread,
    .WaitForSingleObject = wait_for,
    .CloseHandle = close_handle,
    .CreatePipe = create_pipe,
    .ReadFile = read_pipe,
    .CancelIoEx = cancel_reads,
    .ClosePipe = close_pipe,
    .takes_words = true,
    .CreateProcessA = create_process,
    .WaitForProcess = wait_for_process,
    .TerminateProcess = terminate_process,
    .GetExitCodeProcess = exit_code_of_program,
    .CloseProcess = release_program,
};
