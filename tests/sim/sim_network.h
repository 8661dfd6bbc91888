// The network of a simulation: addresses with servers behind them that are up, refuse, or swallow everything.
//
// The agent's sockets never block; whatever arrives does so `latency_ms` after it was sent. A server's end is
// an `io`.
#pragma once

#include "platform/io.h"
#include "platform/sockets_ops.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

// One direction of a connection.
struct sim_stream {
    struct packet {
        int64_t arrives_ms;
        std::string bytes;
    };
    std::deque<packet> under_way;
    std::string bytes; // arrived and not read yet
    bool closed = false;
};

struct sim_link {
    sim_stream to_server;
    sim_stream to_agent;
    bool connected = false;
    uint32_t error = 0;      // why it can not be
    int sends_to_nobody = 0; // by the agent, after the server has closed
};

enum class place_state {
    UP,
    REFUSES,  // nobody listens
    SWALLOWS, // nothing answers
};

struct sim_place {
    std::string name;
    uint32_t address; // network byte order
    uint16_t port;
    place_state state = place_state::UP;
    std::function<void(io *stream, const std::string &place)> serve;
};

struct sim_network {
    int64_t latency_ms = 0;
    int64_t jitter_ms = 0;    // up to so much more, by chance
    bool chopped = false;     // sends and receives take a part of what there is, by chance
    uint32_t calls = 0;       // connections that were tried
    uint32_t vain_closes = 0; // of sockets that were not open

    // A server that is up under this name. Its address is made up.
    sim_place &add(const std::string &name, uint16_t port,
                   std::function<void(io *stream, const std::string &place)> serve);
    sim_place &place(const std::string &name);
    // Cuts all connections, without a word to either side beyond their closing.
    void cut_links();
    // What becomes of the sockets of a process that has gone.
    void close_sockets();

    std::deque<sim_place> places;
    std::map<socket_handle, std::shared_ptr<sim_link>> sockets; // with a link from the connect on
    socket_handle next_handle = 100;
};

extern const sockets_ops sim_sockets;
