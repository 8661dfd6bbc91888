// What the socket layer asks of a host.
//
// A failed call leaves its code in last_error().
#pragma once

#include "platform/sockets.h"

struct socket_readiness {
    bool readable;
    bool writable;
    bool exception;
};

struct sockets_ops {
    // 0, or the error's code.
    int32_t (*WSAStartup)(uint16_t version);
    // All ones where the text is no dotted address.
    uint32_t (*inet_addr)(const char *text);
    // Absent, with the count of addresses and the first of them, or the words of the name service for the
    // failure.
    const char *(*gethostbyname)(const char *host, uint32_t *out_count, uint32_t *out_address);
    // A TCP socket over IPv4, or -1.
    socket_handle (*socket)();
    bool (*set_nonblocking)(socket_handle socket, bool on);
    bool (*set_nodelay)(socket_handle socket, bool on);
    // 0 or -1.
    int32_t (*connect)(socket_handle socket, uint32_t address, uint16_t port);
    // The number of bytes, or -1.
    int64_t (*send)(socket_handle socket, const void *buffer, size_t length);
    int64_t (*recv)(socket_handle socket, void *buffer, size_t size);
    // Waits for what is set in `*wanted`, and leaves in it what has come. The number of sockets ready: 0 is a
    // time-out, -1 a failure.
    int32_t (*select)(socket_handle socket, socket_readiness *wanted, uint32_t seconds);
    bool (*so_error)(socket_handle socket, uint32_t *out_error);
    void (*shutdown)(socket_handle socket);
    bool (*closesocket)(socket_handle socket);
    bool (*getsockname)(socket_handle socket, uint32_t *out_address, uint16_t *out_port);
    bool (*gethostname)(char *buffer, size_t size);
    // Whether the error means that the call would have had to wait.
    bool (*would_block)(uint32_t error);
};

extern const sockets_ops sockets_ops_host;
extern const sockets_ops *sockets_host;
