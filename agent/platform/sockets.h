// TCP over IPv4 with a time limit on every step. Each operation returns absent or a failure text of
// format_error.
#pragma once

#include <cstddef>
#include <cstdint>

using socket_handle = intptr_t;

enum : uint32_t {
    SOCKET_NONBLOCKING = 1,
    SOCKET_NODELAY = 2,
    SOCKET_STREAM = 4, // without effect at this level
};
inline constexpr uint32_t SOCKET_DEFAULT_TIMEOUT = 600; // seconds

// Starts the layer, once.
[[nodiscard]] const char *socket_init();

// The IPv4 address of a host, in network byte order. A dotted form never touches the name service.
[[nodiscard]] const char *socket_resolve(const char *host, uint32_t *out_address);

// Connects within 600 seconds. `port` in host order. On failure no socket is left open.
[[nodiscard]] const char *socket_create(uint32_t address, uint16_t port, socket_handle *out,
                                        uint32_t options);

// Sends all of the buffer.
[[nodiscard]] const char *socket_send(socket_handle socket, const void *buffer, size_t length);

// Takes what there is, at most `size` bytes. A count of 0 means that the peer has closed.
[[nodiscard]] const char *socket_recv(socket_handle socket, void *buffer, size_t size, size_t *out_count);

// Nothing is buffered at this level: always absent.
[[nodiscard]] const char *socket_flush(socket_handle socket);
const char *socket_close(socket_handle socket);
bool socket_wait_readable(socket_handle socket, int32_t seconds);

// `out_address` (network byte order) and `out_port` (host order) may be absent.
bool socket_local_address(socket_handle socket, uint32_t *out_address, uint16_t *out_port);

// The limit of a single send or receive; 0 selects the default.
void socket_set_timeout(uint32_t seconds);
uint32_t socket_timeout();

bool hostname_get(char *buffer, size_t size);

// Forgets that the layer was started, and the time-out, for tests.
void sockets_reset();
