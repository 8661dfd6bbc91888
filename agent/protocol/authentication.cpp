#include "protocol/authentication.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/sockets.h"
#include "protocol/hallmark.h"
#include "protocol/records.h"
#include "protocol/socket_io.h"
#include "protocol/tags.h"
#include "state/variables.h"

std::atomic<int32_t> server_index;
uint32_t server_changed;

void close_io(io *stream) {
    stream->close(stream);
}

// Asks the store, not for a copy: memory that is out must not look like a missing key.
static bool has_variable(const char *key) {
    return var_get(key) != nullptr;
}

static const char *send_wants(io *stream, const agent_config *config) {
    client_wants wants = {.version = PROTOCOL_VERSION};
    bool has_key = has_variable("hostkey");
    client_private_key key = {.name = config->name,
                              .domain = config->domain,
                              .id = config->host_id,
                              .hasMasterKey = has_key,
                              .hasHallmark = has_key && has_variable("hallmark"),
                              .testing = 0};
    if (auto *failure = write_client_wants_incomplete(stream, &wants)) return failure;
    if (auto *failure = write_client_private_key(stream, &key)) return failure;
    return write_eoc(stream);
}

static const char *read_rejection(io *stream, uint32_t tag) {
    negotiate_nack nack;
    if (auto *failure = read_negotiate_nack(stream, &nack, tag)) return failure;
    text_guard reason(nack.reason);
    agent_log(LOG_WARNING, "Server said: \"%s\"", reason.get());
    return "Server rejected us";
}

static const char *read_offers(io *stream, server_offers *offers, server_private_key *key) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag == TAG_NEGOTIATE_NACK) return read_rejection(stream, tag);
    if (tag != TAG_SERVER_OFFERS)
        return format_error("Server returned bad reply to client_wants: %d", static_cast<int>(tag));
    if (auto *failure = read_server_offers_incomplete(stream, offers, tag)) return failure;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag != TAG_SERVER_PRIVATE_KEY)
        return "Tarnix Server does not support private key authentication.  Upgrade  the Tarnix Server.";
    if (auto *failure = read_server_private_key(stream, key, tag)) return failure;
    return skip_to_eol(stream);
}

// Only the major has to be ours.
static const char *check_offers(const agent_config *config, const server_offers &offers,
                                const server_private_key &key) {
    if ((offers.version >> 8) != (PROTOCOL_VERSION >> 8))
        return "Tarnix Server does not support our protocol version. "
               "Upgrade the Tarnix Server, or downgrade the Tarnix Agent.";
    server_protocol_version = offers.version;
    // An agent that holds a key never silently makes a new one.
    if (key.hasMasterKey == 0 && has_variable("hostkey"))
        return format_error("The Tarnix Server does not have a master key for the \"%s\" node in the \"%s\" "
                            "domain - release the key on the agent!",
                            config->name != nullptr ? config->name : "(null)", config->domain);
    return nullptr;
}

const char *client_authenticate(io **stream, const agent_config *config) {
    if (auto *failure = send_wants(*stream, config)) return failure;
    server_offers offers = {};
    server_private_key key = {};
    if (auto *failure = read_offers(*stream, &offers, &key)) return failure;
    if (auto *failure = check_offers(config, offers, key)) return failure;
    if (auto *failure = write_negotiate_ack(*stream)) return failure;
    if (auto *failure = (*stream)->flush(*stream)) return failure;
    return hallmark_negotiate(stream, key.hasMasterKey != 0, key.hasHallmark != 0);
}

const char *connect_to_server(const agent_config *config, io **out) {
    uint16_t port;
    const server_entry *server = config_server(config, server_index, &port);
    return connect_to_host(server->name, port, out);
}

const char *connect_to_host(const char *name, uint16_t port, io **out) {
    uint32_t address;
    // An empty list is legal; its current server has no name.
    if (auto *failure = socket_resolve(name != nullptr ? name : "", &address)) return failure;
    if (auto *failure = socket_io_create(out, address, port, SOCKET_NONBLOCKING)) return failure;
    return *out != nullptr ? nullptr : "socket_create returned no error, but we didn't receive an io";
}

const char *setup_connection(const agent_config *config, io **out, int64_t *out_start,
                             int64_t *out_connected) {
    if (out_start != nullptr) *out_start = time_now();
    io *stream = nullptr;
    if (auto *failure = connect_to_server(config, &stream)) return failure;
    if (out_connected != nullptr) *out_connected = time_now();
    if (auto *failure = client_authenticate(&stream, config)) {
        close_io(stream);
        return failure;
    }
    *out = stream;
    return nullptr;
}

void advance_server(const agent_config *config) {
    if (config->server_count < 2) return;
    server_changed = 1;
    server_index = (server_index + 1) % config->server_count;
}

void authentication_reset() {
    server_index = 0;
    server_changed = 0;
    hallmark_reset();
}
