#include "platform/loopback_peer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static sockaddr_in own_address() {
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = LOOPBACK;
    return own;
}

static int handle(intptr_t socket) {
    return static_cast<int>(socket);
}

loopback_peer::~loopback_peer() {
    close();
    if (listener != -1) ::close(handle(listener));
}

bool loopback_peer::bind() {
    listener = static_cast<intptr_t>(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in own = own_address();
    socklen_t size = sizeof own;
    if (::bind(handle(listener), reinterpret_cast<sockaddr *>(&own), size) != 0) return false;
    if (getsockname(handle(listener), reinterpret_cast<sockaddr *>(&own), &size) != 0) return false;
    port = ntohs(own.sin_port);
    return true;
}

bool loopback_peer::listen() {
    return ::listen(handle(listener), 5) == 0;
}

bool loopback_peer::accept() {
    far_end = static_cast<intptr_t>(::accept(handle(listener), nullptr, nullptr));
    return far_end != -1;
}

int64_t loopback_peer::read(char *buffer, size_t size) {
    return recv(handle(far_end), buffer, size, 0);
}

int64_t loopback_peer::write(const char *buffer, size_t size) {
    return send(handle(far_end), buffer, size, 0);
}

uint16_t loopback_peer::far_port() {
    sockaddr_in seen = {};
    socklen_t size = sizeof seen;
    getpeername(handle(far_end), reinterpret_cast<sockaddr *>(&seen), &size);
    return ntohs(seen.sin_port);
}

void loopback_peer::close() {
    if (far_end != -1) ::close(handle(far_end));
    far_end = -1;
}

void loopback_peer::reset() {
    linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(handle(far_end), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&at_once),
               sizeof at_once);
    close();
}

socket_words host_socket_words() {
    return {.refused = "Connection refused (111)",
            .reset = "Connection reset by peer (104)",
            .gone = "Broken pipe (32)",
            .closed = "Bad file descriptor (9)",
            .unknown_host = "Unknown host"};
}

std::string own_host_name() {
    char name[256] = "";
    gethostname(name, sizeof name);
    return name;
}
