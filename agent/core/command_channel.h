// Downtime on the word of a local administrator, and the main loop's sleep.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t COMMAND_SIZE = 1024; // the largest request and the largest reply

// The main loop's only way to sleep.
void wait_for_object(int64_t seconds);

// Asks the server for downtime without a running agent, and writes the reply.
void connect_and_request_downtime(char *buffer, size_t size);

// Shows the reply. Returns the process's exit status: 0 when it starts with "OK ", else 1.
int show_down_result(const char *text);

// What a process that was started for downtime alone does behind its start-up.
[[noreturn]] void ask_server_for_downtime();
