// The byte stream of an accepted connection, with a limit on every wait, on the whole and on what may come
// in.
#pragma once

#include "platform/io.h"

#include <cstddef>
#include <cstdint>

// What is granted from now on.
struct stream_limits {
    int32_t wait_ms = 0;  // for the next byte to come or go
    int32_t total_ms = 0; // for everything
    size_t bytes = 0;     // to come in
};

// What a read returns, by its address, when the peer has closed in order, with nothing in hand and everything
// taken that was sent to it: it has read the last answer.
extern const char *const STREAM_ENDED;

// A stream over a socket that stays the caller's; absent when memory is out. What is written goes out with
// the next flush or read. Closing the stream sends the rest and ends the sending side, so that a peer reads
// the last words.
io *socket_stream_new(int socket, const stream_limits &limits);

void socket_stream_limit(io *stream, const stream_limits &limits);
