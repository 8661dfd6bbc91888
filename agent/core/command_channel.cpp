#include "core/command_channel.h"

#include "core/command_pipe_ops.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/heap.h"
#include "platform/text.h"
#include "platform/waits.h"
#include "protocol/authentication.h"
#include "protocol/downtime.h"
#include "settings/settings.h"

#include <cstdio>
#include <cstring>
#include <utility>

const command_pipe_ops *command_pipe_host;

namespace {

constexpr const char *COMMAND_DOWN = "DOWN ";
constexpr int32_t REQUEST_WAIT = 60; // seconds for a client that has connected; then it counts as vanished

// A server connection that a request has left open. Nothing uses it; it goes when the server drops it.
struct idle_connection {
    io *stream;
    idle_connection *next;
};

command_pipe *g_pipe;
waitable *g_pipe_event;
int64_t pipe_wait_index = -1; // what wait_for_objects gives for the event
idle_connection *idle_connections;

} // namespace

// ---- connections that requests have left open

// A request leaves its connection open. Those that the server has dropped since are closed by
// the next one, and all of them at the agent's end.
static void keep_connection(io *stream) {
    auto *kept = heap_new<idle_connection>();
    if (kept == nullptr) {
        close_io(stream);
        return;
    }
    *kept = {.stream = stream, .next = idle_connections};
    idle_connections = kept;
}

// A connection that the server has dropped is one that can be read.
static void drop_connections(bool all) {
    for (idle_connection **link = &idle_connections; *link != nullptr;) {
        idle_connection *kept = *link;
        if (!all && !kept->stream->wait_readable(kept->stream, 0)) {
            link = &kept->next;
            continue;
        }
        *link = kept->next;
        close_io(kept->stream);
        heap_free(kept);
    }
}

// ---- setting up

// Waits for the next client. Gives the code of the call.
static uint32_t arm() {
    if (command_pipe_host->ConnectNamedPipe(g_pipe, g_pipe_event)) return 0;
    uint32_t code = last_error();
    if (code == ERROR_PIPE_IS_OPEN) waits_host->SetEvent(g_pipe_event);
    return code;
}

static void wait_for_first_client() {
    uint32_t code = arm();
    if (code == ERROR_PIPE_IS_WAITING) {
        agent_log(LOG_DETAIL, "[cmd] ConnectNamedPipe -> OK (IO_PENDING)");
    } else if (code == ERROR_PIPE_IS_OPEN) {
        agent_log(LOG_DETAIL, "[cmd] ConnectNamedPipe -> ERROR_PIPE_CONNECTED");
    } else {
        agent_log(LOG_DETAIL, "[cmd] ConnectNamedPipe -> GetLastError=%d", static_cast<int>(code));
        fatal("ConnectNamedPipe failed");
    }
}

void setup_command_named_pipe() {
    g_pipe = command_pipe_host->CreateNamedPipeA();
    if (g_pipe == nullptr) fatal("CreateNamedPipe failed");
    agent_log(LOG_DETAIL, "[cmd] Created named pipe GLE=%d", static_cast<int>(last_error()));
    g_pipe_event = waits_host->CreateEventA(true, true);
    if (g_pipe_event == nullptr) fatal("CreateEvent failed in setup_command_named_pipe");
    wait_for_first_client();
    uint32_t place = add_wait_event(g_pipe_event);
    if (place == 0) {
        pipe_wait_index = -1;
        agent_log(LOG_ERROR, "[cmd] add_wait_event(g_pipe_event) failed");
        return;
    }
    pipe_wait_index = place;
    agent_log(LOG_DETAIL, "[cmd] add_wait_event(g_pipe_event) -> 0x%x %d",
              static_cast<unsigned>(reinterpret_cast<uintptr_t>(g_pipe_event)), static_cast<int>(place));
}

void close_command_pipe() {
    drop_connections(true);
    if (g_pipe_event == nullptr) return;
    if (del_wait_event(g_pipe_event) == 0) agent_log(LOG_WARNING, "del_wait_event() failed for g_pipe_event");
    waits_host->CloseHandle(g_pipe_event);
    g_pipe_event = nullptr;
    command_pipe_host->DisconnectNamedPipe(g_pipe);
    command_pipe_host->CloseHandle(g_pipe);
    g_pipe = nullptr;
    pipe_wait_index = -1;
}

// ---- serving a client

// Writes the server's reply, or why there is none, into the buffer.
static void ask_for_downtime(io_guard stream, int32_t minutes, char *buffer, size_t size) {
    io *asked = stream.release();
    auto *failure = request_downtime(asked, minutes, buffer, COMMAND_SIZE);
    if (failure == nullptr || failure == MESSAGE_TOO_BIG) keep_connection(asked);
    if (failure != nullptr) snprintf(buffer, size, "FAILED request_downtime: %.900s", failure);
}

// The reply takes the command's place in the buffer.
static void handle_command(io_guard stream, char *buffer, size_t size) {
    agent_log(LOG_DETAIL, "[cmd] handle_command \"%s\"", buffer);
    if (!text_starts_with(buffer, COMMAND_DOWN)) {
        copy_bounded(buffer, "FAILED unknown command.", size);
        return;
    }
    int32_t minutes = parse_number(buffer + strlen(COMMAND_DOWN));
    if (minutes == 0)
        copy_bounded(buffer, "FAILED Not a number in DOWN command.", size);
    else
        ask_for_downtime(std::move(stream), minutes, buffer, size);
}

// Waits for the client's message, but not for ever, and not beyond the agent's own end.
static bool read_request(char *buffer, uint32_t *out_count) {
    for (int32_t waited = 0;; waited++) {
        *out_count = 0;
        if (command_pipe_host->ReadFile(g_pipe, buffer, COMMAND_SIZE, out_count)) return true;
        bool goes_on = waited < REQUEST_WAIT && terminate_flag.load(std::memory_order_relaxed) == 0;
        if (last_error() != WAIT_ENDED || !goes_on) return false;
    }
}

static bool receive_request(char *buffer, uint32_t *out_count) {
    if (!command_pipe_host->ConnectNamedPipe(g_pipe, nullptr) && last_error() != ERROR_PIPE_IS_OPEN) {
        agent_log(LOG_ERROR, "handle_named_pipe: not connected GLE=%d", static_cast<int>(last_error()));
        return false;
    }
    if (!read_request(buffer, out_count)) {
        uint32_t code = last_error();
        agent_log(LOG_ERROR, "handle_named_pipe: ReadFile failed GLE=%d%s bytesRead=%d",
                  static_cast<int>(code), code == ERROR_PIPE_ENDED ? "(ERROR_BROKEN_PIPE)" : "",
                  static_cast<int>(*out_count));
        return false;
    }
    buffer[*out_count] = '\0';
    return true;
}

static void send_reply(const char *reply) {
    uint32_t written;
    if (command_pipe_host->WriteFile(g_pipe, reply, strlen(reply), &written))
        agent_log(LOG_NORMAL, "handle_named_pipe: Wrote %d bytes back", static_cast<int>(written));
    else
        agent_log(LOG_ERROR, "handle_named_pipe: WriteFile failed GLE=%d", static_cast<int>(last_error()));
    command_pipe_host->FlushFileBuffers(g_pipe);
    if (!command_pipe_host->DisconnectNamedPipe(g_pipe))
        agent_log(LOG_ERROR, "handle_named_pipe: DisconnectNamedPipe GLE=%d", static_cast<int>(last_error()));
}

// Blocks the main loop for as long as it takes. The server connection is opened before anything is read.
static void handle_named_pipe() {
    agent_log(LOG_DETAIL, "[cmd] handle_named_pipe");
    drop_connections(false);
    io *opened = nullptr;
    auto *failure = setup_connection(config_in_force, &opened, nullptr, nullptr);
    io_guard stream(opened);
    char buffer[COMMAND_SIZE + 1];
    uint32_t count;
    if (!receive_request(buffer, &count)) return; // and the pipe is not armed again
    if (count == 0) {
        copy_bounded(buffer, "FAILURE empty command", sizeof buffer);
    } else {
        agent_log(LOG_NORMAL, "handle_named_pipe Got \"%s\"", buffer);
        if (failure != nullptr)
            snprintf(buffer, sizeof buffer, "FAILURE setup_connection: %s", failure);
        else
            handle_command(std::move(stream), buffer, sizeof buffer);
    }
    send_reply(buffer);
    arm();
}

void wait_for_object(int64_t seconds) {
    int32_t place = wait_for_objects(seconds);
    if (place == 0) return;
    agent_log(LOG_DETAIL, "[cmd] wait_for_object Got %d", place);
    if (place != pipe_wait_index) return;
    waits_host->ResetEvent(g_pipe_event);
    handle_named_pipe();
}

void command_channel_reset() {
    idle_connections = nullptr;
    g_pipe = nullptr;
    g_pipe_event = nullptr;
    pipe_wait_index = -1;
}
