// The process that is started with --down: it asks for downtime, shows the reply and ends.
//
// A running agent is asked through the command channel; where there is none, the server itself.
#pragma once

#include <cstddef>
#include <cstdint>

// Asks a running agent, and ends the process with its reply. Returns where no agent can be reached.
void try_local_down(int32_t minutes);

// Hands the agent one command and waits for its reply, without limit. False only where no agent can be
// reached; `reply` always holds a text afterwards.
bool send_command(const char *command, char *reply, size_t reply_size);

// Asks the server for downtime without a running agent, and writes the reply.
void connect_and_request_downtime(char *buffer, size_t size);

// Shows the reply. Returns the process's exit status: 0 when it starts with "OK ", else 1.
int show_down_result(const char *text);

// What a process that was started for downtime alone does behind its start-up.
[[noreturn]] void ask_server_for_downtime();
