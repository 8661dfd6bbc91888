#include "core/local_down.h"

#include "core/command_channel.h"
#include "core/command_pipe_ops.h"
#include "core/options.h"
#include "core/start_flags.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "protocol/authentication.h"
#include "protocol/downtime.h"

#include <cstdio>
#include <cstring>

static constexpr size_t SHORTEST_REPLY = 4;
static constexpr const char *BOX_TITLE = "Tarnix: Set Agent In Downtime";

void try_local_down(int32_t minutes) {
    char command[COMMAND_SIZE];
    char reply[COMMAND_SIZE + 1] = "CANARY"; // a reply that nobody has written can be told
    snprintf(command, sizeof command, "DOWN %d\n", minutes);
    if (send_command(command, reply, sizeof reply)) process_exit(show_down_result(reply));
    agent_log(LOG_DETAIL, "[cmd] could not connect to running agent: %.500s", reply);
}

// Whether an agent runs behind a pipe that could not be opened.
static bool agent_is_there(uint32_t code) {
    if (code == ERROR_PIPE_IS_BUSY) return true;
    if (command_pipe_host->is_refusal == nullptr || !command_pipe_host->is_refusal(code)) return false;
    agent_log(LOG_ERROR, "[cmd] CreateFile -> %s", error_text(code));
    return true;
}

static bool explain_missing_pipe(char *reply, size_t size) {
    if (agent_is_there(last_error())) {
        copy_bounded(reply, "FAILURE Agent is busy. Try later.", size);
        return true;
    }
    agent_log(LOG_ERROR, "[cmd] CreateFile -> Expected ERROR_PIPE_BUSY");
    copy_bounded(reply, "FAILURE Could not connect to agent (expected busy pipe)", size);
    return false;
}

// The agent may be in a long check: there is no limit on this wait.
static bool read_reply(command_pipe *pipe, char *reply, size_t size, uint32_t *out_count) {
    for (;;) {
        if (command_pipe_host->ReadFile(pipe, reply, size, out_count)) return true;
        if (last_error() != WAIT_ENDED) return false;
    }
}

static void take_reply(command_pipe *pipe, char *reply, size_t size) {
    uint32_t count = 0;
    if (!read_reply(pipe, reply, size - 1, &count)) {
        uint32_t code = last_error();
        agent_log(LOG_ERROR, "[cmd] ReadFile failed %d%s", static_cast<int>(code),
                  code == ERROR_PIPE_ENDED ? " ERROR_BROKEN_PIPE" : "");
        copy_bounded(reply, "FAILURE Could not read command result from agent", size);
        return;
    }
    reply[count] = '\0';
    if (count == 0) {
        copy_bounded(reply, "FAILURE Got empty command result from agent", size);
        return;
    }
    agent_log(LOG_DETAIL, "[cmd] ReadFile OK: \"%.900s\"", reply);
}

bool send_command(const char *command, char *reply, size_t reply_size) {
    command_pipe *pipe = command_pipe_host->CreateFileA();
    if (pipe == nullptr) return explain_missing_pipe(reply, reply_size);
    agent_log(LOG_DETAIL, "[cmd] send_command \"%.500s\"", command);
    uint32_t written;
    if (command_pipe_host->WriteFile(pipe, command, strlen(command), &written)) {
        take_reply(pipe, reply, reply_size);
    } else {
        agent_log(LOG_ERROR, "[cmd] send_command: WriteFile failed GLE=%d", static_cast<int>(last_error()));
        copy_bounded(reply, "FAILURE Could write command to agent", reply_size);
    }
    command_pipe_host->CloseHandle(pipe);
    return true;
}

void connect_and_request_downtime(char *buffer, size_t size) {
    io *stream = nullptr;
    auto *failure = setup_connection(config_in_force, &stream, nullptr, nullptr);
    agent_log(LOG_DETAIL, "[cmd] connect_and_request_downtime");
    if (failure != nullptr) {
        snprintf(buffer, size, "FAILED Could not connect to server: %.900s", failure);
        return;
    }
    failure = request_downtime(stream, down_minutes, buffer, size);
    if (failure == nullptr) {
        agent_log(LOG_ERROR, "[cmd] connect_and_request_downtime: %.900s", buffer);
        return;
    }
    agent_log(LOG_ERROR, "[cmd] ERROR connect_and_request_downtime: %.900s", failure);
    snprintf(buffer, size, "FAILED Could not request downtime: %.900s", failure);
}

int show_down_result(const char *text) {
    bool granted = text_starts_with(text, "OK ");
    if (strlen(text) < SHORTEST_REPLY) {
        text = "Too short message from server received";
        granted = false;
    }
    if (quiet_flag != 0 || command_pipe_host->MessageBoxA == nullptr)
        print_on_stderr("%s\n", text);
    else
        command_pipe_host->MessageBoxA(BOX_TITLE, text, !granted);
    return granted ? 0 : 1;
}

// The process ends without clean-up, and what the authentication has changed is not flushed.
void ask_server_for_downtime() {
    char reply[COMMAND_SIZE];
    if (down_minutes == 0) process_exit(0);
    connect_and_request_downtime(reply, sizeof reply);
    process_exit(show_down_result(reply));
}
