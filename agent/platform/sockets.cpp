#include "platform/sockets.h"

#include "platform/errors.h"
#include "platform/sockets_ops.h"
#include "platform/waits.h"

#include <algorithm>
#include <atomic>

const sockets_ops *sockets_host;

namespace {

constexpr uint32_t CONNECT_LIMIT = 600; // seconds, whatever socket_timeout says
constexpr uint32_t NO_ADDRESS = 0xFFFFFFFF;

// The thread that fetches an upgrade has sockets of its own and shares the limit.
std::atomic<uint32_t> timeout{SOCKET_DEFAULT_TIMEOUT};
bool started;

} // namespace

// A host error's words and number, as every text here ends.
static const char *format_last(const char *format) {
    uint32_t error = last_error();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return format_error(format, error_text(error), static_cast<int>(error));
#pragma GCC diagnostic pop
}

// Waits in steps of a second, so that a stop does not wait for a silent server.
static int32_t select_within(socket_handle socket, socket_readiness *wanted, uint32_t seconds) {
    for (;;) {
        uint32_t step = std::min(seconds, 1U);
        socket_readiness ready = *wanted;
        int32_t count = sockets_host->select(socket, &ready, step);
        seconds -= step;
        if (count == 0 && seconds > 0 && terminate_flag.load(std::memory_order_relaxed) == 0) continue;
        *wanted = ready;
        return count;
    }
}

const char *socket_init() {
    if (started) return nullptr;
    if (int32_t code = sockets_host->WSAStartup(0x0002); code != 0)
        return format_error("Error with wsastartup: %s (%d)\n", error_text(static_cast<uint32_t>(code)),
                            code);
    started = true;
    return nullptr;
}

const char *socket_resolve(const char *host, uint32_t *out_address) {
    *out_address = sockets_host->inet_addr(host);
    if (*out_address != NO_ADDRESS) return nullptr;
    uint32_t count = 0;
    if (auto *words = sockets_host->gethostbyname(host, &count, out_address))
        return format_error("Error resolving \"%s\": %s", host, words);
    if (count == 0) return format_error("No addresses found when resolving \"%s\"", host);
    return nullptr;
}

static const char *connect_failure(socket_handle socket) {
    uint32_t status = 0;
    if (!sockets_host->so_error(socket, &status))
        return format_last("Error retrieving connection status: %s (%d)");
    return format_error("Error connecting: %s (%d)", error_text(status), static_cast<int>(status));
}

static const char *finish_connect(socket_handle socket) {
    if (!sockets_host->would_block(last_error())) return format_last("Error connecting: %s (%d)");
    socket_readiness ready = {.writable = true, .exception = true};
    int32_t count = select_within(socket, &ready, CONNECT_LIMIT);
    if (count == 0) return "Connection timed out";
    if (count != 1) return format_error("Error connecting: Select returned: %d", count);
    if (ready.writable) return nullptr;
    if (ready.exception) return connect_failure(socket);
    return "Error connecting: Select returned, but socket isn't present";
}

static const char *prepare_and_connect(socket_handle socket, uint32_t address, uint16_t port,
                                       uint32_t options) {
    if (!sockets_host->set_nonblocking(socket, (options & SOCKET_NONBLOCKING) != 0))
        return format_last("Error setting socket to nonblocking: %s (%d)");
    if (!sockets_host->set_nodelay(socket, (options & SOCKET_NODELAY) != 0))
        return format_last("Error disabling Nagle: %s (%d)");
    if (sockets_host->connect(socket, address, port) == 0) return nullptr;
    return finish_connect(socket);
}

const char *socket_create(uint32_t address, uint16_t port, socket_handle *out, uint32_t options) {
    socket_handle socket = sockets_host->socket();
    if (socket == -1) return format_last("Error creating socket: %s (%d)");
    if (auto *failure = prepare_and_connect(socket, address, port, options)) {
        sockets_host->closesocket(socket);
        return failure;
    }
    *out = socket;
    return nullptr;
}

const char *socket_send(socket_handle socket, const void *buffer, size_t length) {
    const auto *at = static_cast<const char *>(buffer);
    do {
        int64_t sent = sockets_host->send(socket, at, length);
        if (sent < 0) {
            if (!sockets_host->would_block(last_error()))
                return format_last("Bad error without sleep happened in socket_send(): %s (%d)");
            socket_readiness ready = {.writable = true};
            int32_t count = select_within(socket, &ready, timeout);
            if (count == 0) return "Timeout in socket_send()";
            if (count != 1) return format_last("Bad error after sleep happened in socket_send(): %s (%d)");
            continue;
        }
        if (static_cast<uint64_t>(sent) > length) return "send() sent too much - this is a Winsock error";
        at += sent;
        length -= static_cast<size_t>(sent);
    } while (length > 0);
    return nullptr;
}

const char *socket_recv(socket_handle socket, void *buffer, size_t size, size_t *out_count) {
    for (;;) {
        int64_t got = sockets_host->recv(socket, buffer, size);
        if (got >= 0) {
            *out_count = static_cast<size_t>(got);
            return nullptr;
        }
        if (!sockets_host->would_block(last_error()))
            return format_last("Bad error happened without sleep in socket_recv(): %s (%d)");
        socket_readiness ready = {.readable = true};
        int32_t count = select_within(socket, &ready, timeout);
        if (count == 0) return "Timeout in socket_recv()";
        if (count != 1) return format_last("Bad error happened in socket_recv(): %s (%d)");
    }
}

const char *socket_flush(socket_handle) {
    return nullptr;
}

const char *socket_close(socket_handle socket) {
    if (!sockets_host->set_nonblocking(socket, false))
        return format_last("socket_close: Error at ioctlsocket: %s (%d)");
    sockets_host->shutdown(socket);
    if (!sockets_host->closesocket(socket)) return format_last("Error closing socket: %s (%d)");
    return nullptr;
}

bool socket_wait_readable(socket_handle socket, int32_t seconds) {
    socket_readiness ready = {.readable = true};
    return select_within(socket, &ready, static_cast<uint32_t>(std::max(seconds, 0))) == 1;
}

bool socket_local_address(socket_handle socket, uint32_t *out_address, uint16_t *out_port) {
    uint32_t address = 0;
    uint16_t port = 0;
    if (!sockets_host->getsockname(socket, &address, &port)) return false;
    if (out_address != nullptr) *out_address = address;
    if (out_port != nullptr) *out_port = port;
    return true;
}

void socket_set_timeout(uint32_t seconds) {
    timeout = seconds != 0 ? seconds : SOCKET_DEFAULT_TIMEOUT;
}

uint32_t socket_timeout() {
    return timeout;
}

bool hostname_get(char *buffer, size_t size) {
    return sockets_host->gethostname(buffer, size);
}

void sockets_reset() {
    started = false;
    timeout = SOCKET_DEFAULT_TIMEOUT;
}
