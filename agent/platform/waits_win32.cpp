#include "platform/waits.h"

#include <windows.h>

// What can be waited for is a handle here, and nothing has to be kept beside it.
static HANDLE handle_of(waitable *object) {
    return reinterpret_cast<HANDLE>(object);
}

static waitable *create_event(bool manual_reset, bool signalled) {
    return reinterpret_cast<waitable *>(CreateEventA(nullptr, manual_reset, signalled, nullptr));
}

static void set_event(waitable *event) {
    SetEvent(handle_of(event));
}

static void reset_event(waitable *event) {
    ResetEvent(handle_of(event));
}

static void close_handle(waitable *object) {
    CloseHandle(handle_of(object));
}

static int32_t wait_for_multiple(uint32_t count, waitable *const *objects, uint32_t milliseconds) {
    HANDLE handles[WAIT_PLACES];
    for (uint32_t i = 0; i < count; i++)
        handles[i] = handle_of(objects[i]);
    DWORD ended = WaitForMultipleObjects(count, handles, FALSE, milliseconds);
    if (ended == WAIT_TIMEOUT) return WAIT_OBJECT_TIMEOUT;
    return ended < WAIT_OBJECT_0 + count ? static_cast<int32_t>(ended - WAIT_OBJECT_0) : WAIT_OBJECT_FAILED;
}

const waits_ops waits_ops_host = {
    .CreateEventA = create_event,
    .SetEvent = set_event,
    .ResetEvent = reset_event,
    .CloseHandle = close_handle,
    .WaitForMultipleObjects = wait_for_multiple,
};
