// Streams to measure on: one that swallows, one that repeats, and the agent's own over the loopback
// interface.
#pragma once

#include "platform/io.h"

#include <cstdint>
#include <string>
#include <thread>

// Counts what is written. Closing it does nothing.
struct sink {
    sink();
    io stream;
    uint64_t bytes = 0;
};

// Gives the same bytes over and over; a benchmark reads whole rounds of them.
struct source {
    explicit source(std::string content);
    io stream;
    std::string bytes;
    size_t at = 0;
};

// A TCP connection with the agent's stream at one end, and a thread at the other that takes what comes.
struct loopback {
    loopback();
    ~loopback();
    loopback(const loopback &) = delete;
    loopback &operator=(const loopback &) = delete;

    io *stream = nullptr; // belongs to whom takes it; absent when there is no connection
    std::thread reader;
};

// The cipher stream over `below`. With `enciphered` false its key stays unset: blocks are gathered and passed
// on as they are, so that the difference between the two is the price of the cipher alone.
io *cipher_over(io *below, bool enciphered);
