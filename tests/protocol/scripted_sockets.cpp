#include "protocol/scripted_sockets.h"

#include "fakes/test_host.h"
#include "platform/clock.h"

#include <cstring>
#include <gtest/gtest.h>

scripted_sockets *the_sockets;

namespace {

constexpr socket_handle FIRST_HANDLE = 100;

scripted_connection &connection_of(socket_handle socket) {
    return *the_sockets->connections.at(static_cast<size_t>(socket - FIRST_HANDLE));
}

int64_t fail(uint32_t code) {
    the_host->last_error = code;
    return -1;
}

// No dotted forms here: every name is looked up.
uint32_t fake_inet_addr(const char *) {
    return 0xFFFFFFFF;
}

const char *fake_gethostbyname(const char *host, uint32_t *out_count, uint32_t *out_address) {
    auto found = the_sockets->hosts.find(host);
    if (found == the_sockets->hosts.end()) return "Host not found";
    *out_count = 1;
    *out_address = found->second;
    return nullptr;
}

socket_handle fake_socket() {
    the_sockets->connections.push_back(std::make_unique<scripted_connection>());
    return FIRST_HANDLE + static_cast<socket_handle>(the_sockets->connections.size()) - 1;
}

bool fake_set_nonblocking(socket_handle socket, bool on) {
    connection_of(socket).nonblocking = on;
    return true;
}

bool fake_set_nodelay(socket_handle, bool on) {
    EXPECT_FALSE(on);
    return true;
}

int32_t fake_connect(socket_handle socket, uint32_t address, uint16_t port) {
    if (the_sockets->refuse) return static_cast<int32_t>(fail(CODE_REFUSED));
    scripted_connection &connection = connection_of(socket);
    connection.address = address;
    connection.port = port;
    EXPECT_TRUE(connection.nonblocking);
    if (the_sockets->on_connect) the_sockets->on_connect(connection);
    return 0;
}

int64_t fake_send(socket_handle socket, const void *buffer, size_t length) {
    if (the_sockets->send_fails) return fail(CODE_BROKEN);
    connection_of(socket).sent.append(static_cast<const char *>(buffer), length);
    return static_cast<int64_t>(length);
}

// Whether there is something to be received, where need be by the peer's next step.
bool is_readable(scripted_connection &connection) {
    if (connection.received == connection.to_receive.size() && connection.starved) connection.starved();
    return connection.received < connection.to_receive.size() || connection.peer_closed;
}

int64_t fake_recv(socket_handle socket, void *buffer, size_t size) {
    if (the_sockets->receive_fails) return fail(CODE_BROKEN);
    scripted_connection &connection = connection_of(socket);
    if (!is_readable(connection)) return fail(CODE_WOULD_BLOCK);
    size_t count = std::min({size, the_sockets->piece, connection.to_receive.size() - connection.received});
    memcpy(buffer, connection.to_receive.data() + connection.received, count);
    connection.received += count;
    return static_cast<int64_t>(count);
}

int32_t fake_select(socket_handle socket, socket_readiness *wanted, uint32_t seconds) {
    if (wanted->readable && is_readable(connection_of(socket))) return 1;
    the_host->now += seconds;
    return 0;
}

bool fake_so_error(socket_handle, uint32_t *out_error) {
    *out_error = CODE_REFUSED;
    return true;
}

void fake_shutdown(socket_handle) {}

bool fake_closesocket(socket_handle socket) {
    connection_of(socket).open = false;
    connection_of(socket).closes++;
    return true;
}

bool fake_getsockname(socket_handle, uint32_t *out_address, uint16_t *out_port) {
    *out_address = the_sockets->local_address;
    *out_port = 40000;
    return the_sockets->has_local_address;
}

bool fake_would_block(uint32_t error) {
    return error == CODE_WOULD_BLOCK;
}

const sockets_ops scripted_ops = {
    .inet_addr = fake_inet_addr,
    .gethostbyname = fake_gethostbyname,
    .socket = fake_socket,
    .set_nonblocking = fake_set_nonblocking,
    .set_nodelay = fake_set_nodelay,
    .connect = fake_connect,
    .send = fake_send,
    .recv = fake_recv,
    .select = fake_select,
    .so_error = fake_so_error,
    .shutdown = fake_shutdown,
    .closesocket = fake_closesocket,
    .getsockname = fake_getsockname,
    .would_block = fake_would_block,
};

} // namespace

scripted_sockets::scripted_sockets() {
    the_sockets = this;
    sockets_host = &scripted_ops;
}

scripted_sockets::~scripted_sockets() {
    sockets_host = nullptr;
    the_sockets = nullptr;
}

int scripted_sockets::open_connections() const {
    int count = 0;
    for (const auto &connection : connections)
        count += connection->open;
    return count;
}
