// What the host's waitable objects are made of, for the files that make them.
#pragma once

#include "platform/waits.h"

struct thread_state;

struct waitable {
    int file;             // readable while the object is signalled
    int watched;          // readable as well while it is signalled, or -1
    bool consumed;        // the wait that ends on it takes the signal: an automatic-reset event
    thread_state *thread; // absent for an event
};

// Signals the event of this descriptor. Safe in a signal handler.
void signal_descriptor(int file);

// Waits for the end of a thread that was resumed, and releases it.
void close_thread(waitable *object);
