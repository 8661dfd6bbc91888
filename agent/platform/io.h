// The byte stream of a connection, as the socket stream and the cipher stream over it implement it.
#pragma once

#include <cstddef>
#include <cstdint>

struct io {
    // Reads exactly `count` bytes or fails.
    const char *(*read)(io *stream, void *buffer, size_t count);
    const char *(*write)(io *stream, const void *buffer, size_t count);
    // Hands on everything written so far.
    const char *(*flush)(io *stream);
    // Waits until data can be read, or the seconds have passed. Nobody looks at the result.
    bool (*wait_readable)(io *stream, int32_t seconds);
    // Releases the connection and the stream itself.
    void (*close)(io *stream);
    void *state;
};
