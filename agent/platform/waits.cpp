#include "platform/waits.h"

#include "platform/agent_log.h"
#include "platform/clock.h"

const waits_ops *waits_host;
std::atomic<int32_t> terminate_flag;

namespace {

struct wait_table {
    waitable *objects[WAIT_PLACES];
    uint32_t count;
};

wait_table wait_events;
wait_table wakeup_events;

uint32_t append(wait_table *table, waitable *object) {
    if (table->count == WAIT_PLACES) return 0;
    table->objects[table->count] = object;
    return ++table->count;
}

uint32_t remove_object(wait_table *table, waitable *object) {
    uint32_t place = 0;
    while (place < table->count && table->objects[place] != object)
        place++;
    if (place == table->count) return 0;
    table->count--;
    for (; place < table->count; place++)
        table->objects[place] = table->objects[place + 1];
    return 1;
}

// A place from 1 up, 0 for a time-out, or WAIT_OBJECT_FAILED.
int32_t sleep_on(const wait_table *table, int64_t seconds) {
    if (seconds < 1) return 0;
    uint32_t milliseconds = static_cast<uint32_t>(seconds) * 1000; // wraps in 32 bits
    if (table->count == 0) {
        clock_host->Sleep(milliseconds);
        return 0;
    }
    int32_t index = waits_host->WaitForMultipleObjects(table->count, table->objects, milliseconds);
    return index >= 0 ? index + 1 : index == WAIT_OBJECT_TIMEOUT ? 0 : WAIT_OBJECT_FAILED;
}

} // namespace

uint32_t add_wait_event(waitable *object) {
    return append(&wait_events, object);
}

uint32_t del_wait_event(waitable *object) {
    return remove_object(&wait_events, object);
}

uint32_t add_wakeup_event(waitable *object, uint32_t *out_index) {
    uint32_t index = append(&wakeup_events, object);
    if (out_index != nullptr) *out_index = index != 0 ? index : WAIT_PLACES;
    return index != 0;
}

uint32_t del_wakeup_event(waitable *object) {
    return remove_object(&wakeup_events, object);
}

int32_t wait_for_objects(int64_t seconds) {
    int32_t place = sleep_on(&wait_events, seconds);
    if (place != WAIT_OBJECT_FAILED) return place;
    agent_log(LOG_ERROR, "wait_for_objects WAIT_FAILED");
    return 0;
}

int32_t sleep_interruptible(int64_t seconds) {
    int32_t place = sleep_on(&wakeup_events, seconds);
    return place != WAIT_OBJECT_FAILED ? place : 0;
}

void waits_reset() {
    wait_events = {};
    wakeup_events = {};
    terminate_flag = 0;
}
