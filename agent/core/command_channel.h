// The local command channel: a pipe through which an administrator on this host gives the running agent one
// command, a line in and a reply out, served within the main loop's sleep.
//
//     request   "DOWN %d\n", the minutes of downtime that the agent is to ask the server for
//     reply     "OK" or "FAILURE" and the server's message, or what went wrong
//
// The pipe is waiting, connected (its event signalled, the main loop not yet there), being handled, and
// waiting again. A client that vanishes before it has written leaves the channel silent until the agent
// restarts.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t COMMAND_SIZE = 1024; // the largest request and the largest reply

// Makes the pipe and waits for the first client. A host on which an agent runs already is fatal.
void setup_command_named_pipe();

// The main loop's only way to sleep; a client that comes is served at once.
void wait_for_object(int64_t seconds);

// Takes the pipe away, if there is one.
void close_command_pipe();

// Forgets the channel and what it has left open, for tests.
void command_channel_reset();
