// Accepts connections and gives each a thread, until it is told to stop.
#pragma once

#include "server/session.h"

#include <atomic>
#include <functional>
#include <string>

class connection_table;
class thread_list;

class listener {
public:
    listener() = default;
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

    int socket = -1;
    int wake[2] = {-1, -1};
    std::atomic<int> stops = 0;
};
