#include "platform/loopback_peer.h"

#include "platform/errors.h"

#include <winsock2.h>

static sockaddr_in own_address() {
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = LOOPBACK;
    return own;
}

static SOCKET handle(intptr_t socket) {
    return static_cast<SOCKET>(socket);
}

loopback_peer::~loopback_peer() {
    close();
    if (listener != -1) closesocket(handle(listener));
}

bool loopback_peer::bind() {
    listener = static_cast<intptr_t>(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in own = own_address();
    int size = sizeof own;
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
    return recv(handle(far_end), buffer, static_cast<int>(size), 0);
}

int64_t loopback_peer::write(const char *buffer, size_t size) {
    return send(handle(far_end), buffer, static_cast<int>(size), 0);
}

uint16_t loopback_peer::far_port() {
    sockaddr_in seen = {};
    int size = sizeof seen;
    getpeername(handle(far_end), reinterpret_cast<sockaddr *>(&seen), &size);
    return ntohs(seen.sin_port);
}

void loopback_peer::close() {
    if (far_end != -1) closesocket(handle(far_end));
    far_end = -1;
}

void loopback_peer::reset() {
    linger at_once = {.l_onoff = 1, .l_linger = 0};
    setsockopt(handle(far_end), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char *>(&at_once),
               sizeof at_once);
    close();
}

static std::string words_and_number(uint32_t code) {
    error_host = &error_ops_host;
    return std::string(error_text(code)) + " (" + std::to_string(code) + ")";
}

socket_words host_socket_words() {
    socket_words words = {.refused = words_and_number(WSAECONNREFUSED),
                          .reset = words_and_number(WSAECONNRESET),
                          .gone = words_and_number(WSAECONNRESET),
                          .closed = words_and_number(WSAENOTSOCK),
                          .unknown_host = error_text(WSAHOST_NOT_FOUND),
                          .reset_may_look_closed = true};
    return words;
}

std::string own_host_name() {
    char name[256] = "";
    gethostname(name, sizeof name);
    return name;
}
