#include "platform/sockets_ops.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

static int32_t startup(uint16_t) {
    return 0;
}

static uint32_t host_inet_addr(const char *text) {
    return inet_addr(text);
}

static const char *host_gethostbyname(const char *host, uint32_t *out_count, uint32_t *out_address) {
    char memory[8192];
    hostent entry;
    hostent *found = nullptr;
    int code = 0;
    *out_count = 0;
    if (gethostbyname_r(host, &entry, memory, sizeof memory, &found, &code) != 0 || found == nullptr)
        return hstrerror(code);
    if (found->h_addrtype != AF_INET) return nullptr;
    while (found->h_addr_list[*out_count] != nullptr)
        ++*out_count;
    if (*out_count > 0) memcpy(out_address, found->h_addr_list[0], sizeof *out_address);
    return nullptr;
}

static socket_handle host_socket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

static bool set_nonblocking(socket_handle socket, bool on) {
    int file = static_cast<int>(socket);
    int flags = fcntl(file, F_GETFL);
    return flags >= 0 && fcntl(file, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == 0;
}

static bool set_nodelay(socket_handle socket, bool on) {
    int value = on ? 1 : 0;
    return setsockopt(static_cast<int>(socket), IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0;
}

static int32_t host_connect(socket_handle socket, uint32_t address, uint16_t port) {
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = address;
    return connect(static_cast<int>(socket), reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

static int64_t host_send(socket_handle socket, const void *buffer, size_t length) {
    ssize_t sent;
    do
        sent = send(static_cast<int>(socket), buffer, length, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent;
}

static int64_t host_recv(socket_handle socket, void *buffer, size_t size) {
    ssize_t got;
    do
        got = recv(static_cast<int>(socket), buffer, size, 0);
    while (got < 0 && errno == EINTR);
    return got;
}

static int32_t host_select(socket_handle socket, socket_readiness *wanted, uint32_t seconds) {
    int file = static_cast<int>(socket);
    pollfd one = {.fd = file};
    one.events = static_cast<short>((wanted->readable ? POLLIN : 0) | (wanted->writable ? POLLOUT : 0));
    int count = poll(&one, 1, static_cast<int>(seconds * 1000));
    if (count < 0 && errno == EINTR) count = 0; // the caller's next step tries again
    // A failed connect makes a socket writable here; other hosts tell it through the exception set alone.
    bool failed = wanted->exception && (one.revents & (POLLERR | POLLHUP)) != 0;
    *wanted = {.readable = wanted->readable && one.revents != 0,
               .writable = wanted->writable && !failed && one.revents != 0,
               .exception = failed};
    return count;
}

static bool so_error(socket_handle socket, uint32_t *out_error) {
    int status = 0;
    socklen_t size = sizeof status;
    if (getsockopt(static_cast<int>(socket), SOL_SOCKET, SO_ERROR, &status, &size) != 0) return false;
    *out_error = static_cast<uint32_t>(status);
    return true;
}

static void host_shutdown(socket_handle socket) {
    shutdown(static_cast<int>(socket), SHUT_RDWR);
}

static bool close_socket(socket_handle socket) {
    return close(static_cast<int>(socket)) == 0;
}

static bool host_getsockname(socket_handle socket, uint32_t *out_address, uint16_t *out_port) {
    sockaddr_in own = {};
    socklen_t size = sizeof own;
    if (getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr *>(&own), &size) != 0) return false;
    *out_address = own.sin_addr.s_addr;
    *out_port = ntohs(own.sin_port);
    return true;
}

static bool host_gethostname(char *buffer, size_t size) {
    if (gethostname(buffer, size) != 0) return false;
    buffer[size - 1] = '\0';
    return true;
}

static bool would_block(uint32_t error) {
    return error == EWOULDBLOCK || error == EINPROGRESS;
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
