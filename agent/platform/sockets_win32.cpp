#include "platform/sockets_ops.h"

#include "platform/errors.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <winsock2.h>

static SOCKET host_handle(socket_handle socket) {
    return static_cast<SOCKET>(socket);
}

static int32_t startup(uint16_t version) {
    WSADATA found;
    return WSAStartup(version, &found);
}

static uint32_t host_inet_addr(const char *text) {
    return inet_addr(text);
}

static const char *host_gethostbyname(const char *host, uint32_t *out_count, uint32_t *out_address) {
    *out_count = 0;
    const hostent *found = gethostbyname(host);
    if (found == nullptr) return last_error_text();
    if (found->h_addrtype != AF_INET) return nullptr;
    while (found->h_addr_list[*out_count] != nullptr)
        ++*out_count;
    if (*out_count > 0) memcpy(out_address, found->h_addr_list[0], sizeof *out_address);
    return nullptr;
}

// Programs that the agent starts would inherit the socket, and keep the connection open.
static socket_handle host_socket() {
    SOCKET made = socket(AF_INET, SOCK_STREAM, 0);
    if (made == INVALID_SOCKET) return -1;
    SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
    return static_cast<socket_handle>(made);
}

static bool set_nonblocking(socket_handle socket, bool on) {
    u_long value = on ? 1 : 0;
    return ioctlsocket(host_handle(socket), static_cast<long>(FIONBIO), &value) == 0;
}

static bool set_nodelay(socket_handle socket, bool on) {
    DWORD value = on ? 1 : 0;
    return setsockopt(host_handle(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&value),
                      sizeof value) == 0;
}

static int32_t host_connect(socket_handle socket, uint32_t address, uint16_t port) {
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = address;
    return connect(host_handle(socket), reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

static int length_of(size_t length) {
    return static_cast<int>(std::min(length, size_t{INT_MAX}));
}

static int64_t host_send(socket_handle socket, const void *buffer, size_t length) {
    return send(host_handle(socket), static_cast<const char *>(buffer), length_of(length), 0);
}

static int64_t host_recv(socket_handle socket, void *buffer, size_t size) {
    return recv(host_handle(socket), static_cast<char *>(buffer), length_of(size), 0);
}

static fd_set set_of(socket_handle socket, bool wanted) {
    fd_set set = {};
    if (wanted) {
        set.fd_count = 1;
        set.fd_array[0] = host_handle(socket);
    }
    return set;
}

static int32_t host_select(socket_handle socket, socket_readiness *wanted, uint32_t seconds) {
    fd_set readable = set_of(socket, wanted->readable);
    fd_set writable = set_of(socket, wanted->writable);
    fd_set exception = set_of(socket, wanted->exception);
    timeval limit = {.tv_sec = static_cast<long>(seconds), .tv_usec = 0};
    int32_t count = select(0, &readable, &writable, &exception, &limit);
    *wanted = {};
    if (count <= 0) return count;
    *wanted = {.readable = readable.fd_count != 0,
               .writable = writable.fd_count != 0,
               .exception = exception.fd_count != 0};
    return count;
}

static bool so_error(socket_handle socket, uint32_t *out_error) {
    DWORD status = 0;
    int size = sizeof status;
    if (getsockopt(host_handle(socket), SOL_SOCKET, SO_ERROR, reinterpret_cast<char *>(&status), &size) != 0)
        return false;
    *out_error = status;
    return true;
}

static void host_shutdown(socket_handle socket) {
    shutdown(host_handle(socket), SD_BOTH);
}

static bool close_socket(socket_handle socket) {
    return closesocket(host_handle(socket)) == 0;
}

static bool host_getsockname(socket_handle socket, uint32_t *out_address, uint16_t *out_port) {
    sockaddr_in own = {};
    int size = sizeof own;
    if (getsockname(host_handle(socket), reinterpret_cast<sockaddr *>(&own), &size) != 0) return false;
    *out_address = own.sin_addr.s_addr;
    *out_port = ntohs(own.sin_port);
    return true;
}

static bool host_gethostname(char *buffer, size_t size) {
    return gethostname(buffer, length_of(size)) == 0;
}

static bool would_block(uint32_t error) {
    return error == WSAEWOULDBLOCK;
}

const sockets_ops sockets_ops_host = {
    .WSAStartup = startup,
    .inet_addr = host_inet_addr,
    .gethostbyname = host_gethostbyname,
    .socket = host_socket,
    .set_nonblocking = set_nonblocking,
    .set_nodelay = set_nodelay,
    .connect = host_connect,
    .send = host_send,
    .recv = host_recv,
    .select = host_select,
    .so_error = so_error,
    .shutdown = host_shutdown,
    .closesocket = close_socket,
    .getsockname = host_getsockname,
    .gethostname = host_gethostname,
    .would_block = would_block,
};
