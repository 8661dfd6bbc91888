#include "protocol/registration.h"

#include "platform/agent_log.h"
#include "platform/sockets.h"
#include "platform/text.h"
#include "protocol/authentication.h"
#include "protocol/configure.h"
#include "protocol/socket_io.h"
#include "protocol/time_sync.h"

#include <cstdio>
#include <cstring>

static char *local_name(const io *stream) {
    uint32_t address = 0;
    if (!socket_local_address(socket_io_handle(stream), &address, nullptr)) {
        agent_log(LOG_ERROR, "Could not determine local ip address");
        return text_copy("");
    }
    unsigned char part[4];
    memcpy(part, &address, sizeof part);
    char text[32];
    snprintf(text, sizeof text, "%d.%d.%d.%d", part[0], part[1], part[2], part[3]);
    agent_log(LOG_DETAIL, "Using local ip address: %s", text);
    return text_copy(text);
}

static const char *authenticate_and_configure(io **stream, agent_config *config) {
    agent_log(LOG_DETAIL, "Will authenticate");
    if (auto *failure = client_authenticate(stream, config)) return failure;
    agent_log(LOG_DETAIL, "Will register with server");
    return configure_exchange(*stream, config, false);
}

// Registration succeeds with or without the server's time.
static void finish_registration(io *stream) {
    agent_log(LOG_DETAIL, "Authentication and registration ok");
    if (sync_server_time(stream) == nullptr)
        stream->close(stream);
    else
        agent_log(LOG_DETAIL, "Server does not support time synchronization");
}

const char *server_register(agent_config *config) {
    uint16_t port;
    const server_entry *server = config_server(config, server_index, &port);
    agent_log(LOG_DETAIL, "Talking to server: %s:%d", server->name != nullptr ? server->name : "(null)",
              port);
    io *stream = nullptr;
    if (auto *failure = connect_to_server(config, &stream)) return failure;
    if (config->name == nullptr) config->name = local_name(stream);
    if (auto *failure = authenticate_and_configure(&stream, config)) {
        stream->close(stream);
        return failure;
    }
    finish_registration(stream);
    return nullptr;
}

const char *register_with_server(agent_config *config) {
    auto *failure = server_register(config);
    if (failure != nullptr) advance_server(config);
    return failure;
}
