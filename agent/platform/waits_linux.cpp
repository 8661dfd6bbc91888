#include "platform/waits_linux.h"

#include "platform/heap.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

void signal_descriptor(int file) {
    uint64_t one = 1;
    ssize_t written = write(file, &one, sizeof one);
    static_cast<void>(written); // a full counter is signalled already
}

static void drain(int file) {
    uint64_t count;
    ssize_t got = read(file, &count, sizeof count);
    static_cast<void>(got); // an empty counter is not signalled, which is what was wanted
}

static waitable *create_event(bool manual_reset, bool signalled) {
    auto *event = heap_new<waitable>();
    if (event == nullptr) return nullptr;
    event->file = eventfd(signalled ? 1 : 0, EFD_NONBLOCK | EFD_CLOEXEC);
    event->watched = -1;
    event->consumed = !manual_reset;
    if (event->file >= 0) return event;
    heap_free(event);
    return nullptr;
}

static void set_event(waitable *event) {
    signal_descriptor(event->file);
}

static void reset_event(waitable *event) {
    drain(event->file);
}

static void close_handle(waitable *object) {
    if (object->thread != nullptr) {
        close_thread(object);
        return;
    }
    close(object->file);
    heap_free(object);
}

static int64_t milliseconds_now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

static int poll_until(pollfd *files, uint32_t count, int64_t deadline) {
    for (;;) {
        int64_t left = deadline - milliseconds_now();
        timespec limit = {.tv_sec = left / 1000, .tv_nsec = static_cast<long>(left % 1000) * 1000000};
        if (left < 0) limit = {};
        int ready = ppoll(files, count, &limit, nullptr);
        // A handler that wants to end the sleep signals one of the events; any other signal does not count.
        if (ready >= 0 || errno != EINTR) return ready;
    }
}

static int32_t wait_for_multiple(uint32_t count, waitable *const *objects, uint32_t milliseconds) {
    pollfd files[2 * WAIT_PLACES] = {};
    for (uint32_t i = 0; i < count; i++) {
        files[2 * i] = {.fd = objects[i]->file, .events = POLLIN};
        files[2 * i + 1] = {.fd = objects[i]->watched, .events = POLLIN};
    }
    int ready = poll_until(files, 2 * count, milliseconds_now() + milliseconds);
    if (ready < 0) return WAIT_OBJECT_FAILED;
    for (uint32_t i = 0; i < count; i++) {
        if (files[2 * i].revents == 0 && files[2 * i + 1].revents == 0) continue;
        if (objects[i]->consumed) drain(objects[i]->file);
        return static_cast<int32_t>(i);
    }
    return WAIT_OBJECT_TIMEOUT;
}

const waits_ops waits_ops_host = {
    .CreateEventA = create_event,
    .SetEvent = set_event,
    .ResetEvent = reset_event,
    .CloseHandle = close_handle,
    .WaitForMultipleObjects = wait_for_multiple,
};
