// Accepts connections and gives each a thread, until it is told to stop.
#pragma once

#include "server/session.h"
#include "server/socket_stream.h"

#include <atomic>
#include <functional>
#include <string>

class connection_table;
class thread_list;

// A stranger gets little; a scan of hardware leaves the line quiet for minutes.
struct listener_limits {
    size_t connections = 512;
    // The main loop's, a downtime request's, the download of an upgrade, and one to spare for a connection
    // that the network has forgotten.
    size_t connections_of_agent = 4;
    stream_limits opening = {.wait_ms = 20'000, .total_ms = 60'000, .bytes = 16384};
    stream_limits exchange = {.wait_ms = 60'000, .total_ms = 300'000, .bytes = 64U << 20};
    stream_limits scan = {.wait_ms = 600'000, .total_ms = 900'000, .bytes = 64U << 20};
    // At its lowest priority, over a slow line.
    stream_limits upgrade = {.wait_ms = 60'000, .total_ms = 1'800'000, .bytes = 16384};
    int32_t patience_ms = 5'000; // with sessions at the end
};

class listener {
public:
    explicit listener(const listener_limits &what = {}) : limits(what) {}
    ~listener();
    listener(const listener &) = delete;
    listener &operator=(const listener &) = delete;

    // Binds to "ADDRESS:PORT". `out_address` is what it became, with the port that a 0 stands for.
    [[nodiscard]] const char *open(const std::string &address, std::string *out_address);

    // Serves until stop() was called, then lets sessions come to their end, cuts those that do not, and
    // returns when the last thread has ended. `idle` is called about once a second.
    void serve(const server_ports &ports, const std::function<void()> &idle);

    // Safe in a signal handler. A second call cuts the sessions at once.
    void stop();

private:
    int accept_one(std::string *out_address);
    void take_connection(const server_ports &ports, connection_table &table, thread_list &threads);
    void wait_for_sessions(connection_table &table);

    const listener_limits limits;
    int socket = -1;
    int wake[2] = {-1, -1};
    std::atomic<int> stops = 0;
};
