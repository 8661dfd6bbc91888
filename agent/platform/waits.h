// The objects that can end a sleep.
//
// Two tables hold at most four of them each, packed in the order of insertion: the main loop sleeps on the
// wait-event table, which a local command also ends; the short sleeps inside probes use the wakeup table,
// which only a stop or a finished download ends.
#pragma once

#include <atomic>
#include <cstdint>

// An event or a thread of the host.
struct waitable;

inline constexpr uint32_t WAIT_PLACES = 4;
enum : int32_t { WAIT_OBJECT_TIMEOUT = -1, WAIT_OBJECT_FAILED = -2 };

struct waits_ops {
    // Absent when the host has no more.
    waitable *(*CreateEventA)(bool manual_reset, bool signalled);
    void (*SetEvent)(waitable *event);
    void (*ResetEvent)(waitable *event);
    void (*CloseHandle)(waitable *object);
    // The index of the first signalled object, WAIT_OBJECT_TIMEOUT or WAIT_OBJECT_FAILED. An automatic-reset
    // event that ends the wait is reset by it.
    int32_t (*WaitForMultipleObjects)(uint32_t count, waitable *const *objects, uint32_t milliseconds);
};

extern const waits_ops waits_ops_host;
extern const waits_ops *waits_host;

// The agent is to stop: set by a signal or by the thread that watches the launcher. Waits on sockets end with
// their time-out text within a second while it is set.
extern std::atomic<int32_t> terminate_flag;

// Appends. Returns the new count, the number that wait_for_objects gives for this object as long as no
// earlier one is removed, or 0 when the table is full.
uint32_t add_wait_event(waitable *object);

// Removes and moves the later ones up. Returns 1, or 0 when the object is not there.
uint32_t del_wait_event(waitable *object);

// Returns 1, with the new count in `*out_index`, which may be absent; 0 with 4 in it when the table is full.
uint32_t add_wakeup_event(waitable *object, uint32_t *out_index);
uint32_t del_wakeup_event(waitable *object);

// Sleeps until an object of the wait-event table is signalled, and gives its place from 1 up. 0 is a time-out
// or a failure; below one second it comes at once, and a signalled object stays so.
int32_t wait_for_objects(int64_t seconds);

// The same on the wakeup table.
int32_t sleep_interruptible(int64_t seconds);

// Empties both tables, for tests.
void waits_reset();
