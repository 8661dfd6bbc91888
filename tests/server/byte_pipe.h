// A connection in memory: two streams of bytes, one for each direction.
#pragma once

#include "platform/io.h"

#include <condition_variable>
#include <mutex>
#include <string>

class byte_pipe {
public:
    void write(const std::string &bytes);
    void close();
    // Waits for `count` bytes. Fewer mean that the writer has closed, or has been silent for longer than any
    // test takes.
    std::string read(size_t count);

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string bytes;
    size_t at = 0; // of what has been read
    bool closed = false;
};

// How the server sees it when its peer closes.
enum class peer_end { in_order, lost };

struct memory_connection {
    byte_pipe to_server, to_agent;
    peer_end end = peer_end::in_order;
};

// The server's end. Closing it closes what goes to the agent.
io *memory_stream_new(memory_connection *connection);
