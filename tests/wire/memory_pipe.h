// Two ends of a byte stream in memory, and a scripted server on its own thread behind one of them.
//
//     memory_pipe pipe;
//     served_pipe served(server, pipe);
//     EXPECT_SUCCESS(client_authenticate(&pipe.agent, config));
//
// An end that is closed lets the other read what is left, and then fails with "Peer closed connection
// unexpectedly".
#pragma once

#include "platform/io.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

struct scripted_server;

struct pipe_end {
    std::string coming;  // not read yet
    std::string written; // all that this end has written, for tests that look at the bytes
    bool closed = false;
    uint32_t flushes = 0;
};

struct memory_pipe {
    memory_pipe();
    ~memory_pipe();
    memory_pipe(const memory_pipe &) = delete;

    io *agent; // whoever closes an end ends its use; the pipe itself lives on
    io *server;

    // What the server's end would have sent, for tests without a server.
    void answer(const std::string &bytes);
    void close_server_end();

    std::mutex lock;
    std::condition_variable changed;
    pipe_end ends[2]; // agent's and server's
    io streams[2];

private:
    struct end_name {
        memory_pipe *pipe;
        int end;
    };
    end_name names[2];
    friend struct pipe_calls;
};

// Serves the pipe's other end on a thread of its own until the object goes.
struct served_pipe {
    served_pipe(scripted_server &server, memory_pipe &pipe);
    ~served_pipe();
    // Closes the agent's end if the agent has not, and waits for the server to end.
    void finish();

    memory_pipe &pipe;
    std::thread thread;
};
