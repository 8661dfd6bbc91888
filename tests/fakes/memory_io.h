// A byte stream in memory: bytes to be read, bytes that were written, and calls that fail when asked.
#pragma once

#include "platform/io.h"

#include <functional>
#include <string>
#include <vector>

// What a read gives that finds too little, and what a call gives that was asked to fail.
inline constexpr const char *MEMORY_IO_EMPTY = "nothing is left to be read";
inline constexpr const char *MEMORY_IO_FAILED = "the stream has failed";

struct memory_io {
    explicit memory_io(std::string to_read = "");
    memory_io(const memory_io &) = delete;
    memory_io &operator=(const memory_io &) = delete;

    io stream;
    operator io *() { return &stream; }

    std::string input; // what was read and what is still to be read
    size_t position = 0;
    std::string left() const; // what is still to be read
    std::string written;
    int flushes = 0;
    int closes = 0;
    std::vector<int32_t> waits; // seconds of each wait_readable

    // Called when a read wants more than there is: a peer that answers what has been written so far adds to
    // `input`.
    std::function<void()> starved;

    // The n-th read, write or flush from now on fails, and every one behind it; 0 for never.
    uint32_t fail_call = 0;
    uint32_t calls = 0;
};
