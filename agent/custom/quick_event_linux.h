// An event between two threads of this process that hand something to and fro: a wait looks for a moment
// before it sleeps, since the other thread is mostly at work already. A wait resets it, and one thread waits
// at a time.
#pragma once

#include <atomic>
#include <cstdint>

struct quick_event {
    std::atomic<uint32_t> state; // 0, or one of those of the .cpp
};

void quick_event_set(quick_event *event);
void quick_event_reset(quick_event *event);
// False when the limit has passed; UINT32_MAX is none.
bool quick_event_wait(quick_event *event, uint32_t milliseconds);
