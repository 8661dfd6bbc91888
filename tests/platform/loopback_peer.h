// The far end of a connection over the loopback, out of the host's own calls and none of the agent's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

inline constexpr uint32_t LOOPBACK = 0x0100007F; // in network byte order

struct loopback_peer {
    uint16_t port = 0;
    intptr_t listener = -1;
    intptr_t far_end = -1;

    loopback_peer() = default;
    ~loopback_peer();
    loopback_peer(const loopback_peer &) = delete;
    loopback_peer &operator=(const loopback_peer &) = delete;

    // Takes a port on which nobody listens yet.
    bool bind();
    bool listen();
    bool accept();
    int64_t read(char *buffer, size_t size);
    int64_t write(const char *buffer, size_t size);
    uint16_t far_port();
    void close();
    void reset();
};

// How this host words what happens to a socket, with the number behind it.
struct socket_words {
    std::string refused, reset, gone, closed, unknown_host;
    bool reset_may_look_closed = false; // Wine tells a reset that it has waited for as a close
};
socket_words host_socket_words();

std::string own_host_name();
