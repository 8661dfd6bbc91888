// An event or a thread of a simulated host.
#pragma once

#include "platform/waits.h"

#include <cstdint>

struct waitable {
    bool manual_reset;
    bool signalled;
    // Of a thread.
    uint32_t (*body)(void *argument) = nullptr;
    void *argument = nullptr;
    uint32_t exit_code = 0;
};
