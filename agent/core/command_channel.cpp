#include "core/command_channel.h"

#include "core/options.h"
#include "core/start_flags.h"
#include "platform/agent_log.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "platform/waits.h"
#include "protocol/authentication.h"
#include "protocol/downtime.h"

#include <cstdio>
#include <cstring>

static constexpr size_t SHORTEST_REPLY = 4;

void wait_for_object(int64_t seconds) {
    int32_t place = wait_for_objects(seconds);
    if (place != 0) agent_log(LOG_DETAIL, "[cmd] wait_for_object Got %d", place);
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
    print_on_stderr("%s\n", text);
    return granted ? 0 : 1;
}

// The process ends without clean-up, and what the authentication has changed is not flushed.
void ask_server_for_downtime() {
    char reply[COMMAND_SIZE];
    if (down_minutes == 0) process_exit(0);
    connect_and_request_downtime(reply, sizeof reply);
    process_exit(show_down_result(reply));
}
