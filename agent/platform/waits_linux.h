// What the host's waitable objects are made of, for the files that make them.
#pragma once

#include "platform/waits.h"

struct waitable {
    int file;      // readable while the object is signalled
    bool consumed; // the wait that ends on it takes the signal: an automatic-reset event
};

// Signals the event of this descriptor. Safe in a signal handler.
void signal_descriptor(int file);
