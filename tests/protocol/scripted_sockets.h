// A network in memory: connections to a peer that a test scripts.
//
// A receive that finds nothing first asks the peer for more; if there still is nothing, the connection is at
// its end or the call would have to wait, and waiting moves the test host's clock on to the time-out.
#pragma once

#include "platform/sockets_ops.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct scripted_connection {
    uint32_t address;
    uint16_t port; // in host order
    std::string sent;
    std::string to_receive;
    size_t received = 0;
    std::function<void()> starved;
    bool peer_closed = false;
    bool open = true;
    bool nonblocking = false;
    int closes = 0;
};

inline constexpr uint32_t CODE_WOULD_BLOCK = 11;
inline constexpr uint32_t CODE_REFUSED = 111;
inline constexpr uint32_t CODE_BROKEN = 32;

// Installed while it lives; needs a test host.
struct scripted_sockets {
    scripted_sockets();
    ~scripted_sockets();
    scripted_sockets(const scripted_sockets &) = delete;
    scripted_sockets &operator=(const scripted_sockets &) = delete;

    std::map<std::string, uint32_t> hosts = {
        {"server", 0x0100007F}}; // names and their addresses, in network order
    std::vector<std::unique_ptr<scripted_connection>> connections;
    std::function<void(scripted_connection &)> on_connect;

    bool refuse = false;
    bool has_local_address = true;
    uint32_t local_address = 0x0402000A; // 10.0.2.4
    size_t piece = SIZE_MAX;             // most bytes of one receive
    bool send_fails = false;
    bool receive_fails = false;

    scripted_connection &last() { return *connections.back(); }
    int open_connections() const;
};

extern scripted_sockets *the_sockets;
