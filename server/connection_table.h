// The connections that are open, with the rules by which none of them can stop the others.
//
// There is a place for a bounded number. When all are taken, the stranger that has been longest in its
// opening makes room: a real agent is through with that in a moment. An agent has a few connections at most.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

class connection_table {
public:
    // `cut` ends a connection's traffic from outside; its own thread then finds that out and removes it.
    connection_table(size_t all_places, size_t of_agent, std::function<void(int socket)> cut_socket)
        : places(all_places), places_of_agent(of_agent), cut(std::move(cut_socket)) {}

    // A number for the connection, or 0 when there is no room. Waits a moment for connections that have been
    // cut.
    uint64_t add(int socket);
    // The connection has turned out to be this agent's. False when the agent has its share already.
    bool name_agent(uint64_t number, int64_t agent_id);
    void remove(uint64_t number);
    void cut_all();
    size_t size() const;

private:
    struct connection {
        int socket = -1;
        int64_t agent_id = 0; // 0 for a stranger
        bool is_cut = false;
    };
    size_t count_open() const;
    bool make_room();

    const size_t places;
    const size_t places_of_agent;
    const std::function<void(int socket)> cut;
    mutable std::mutex mutex;
    std::condition_variable left;
    std::map<uint64_t, connection> taken; // by number, the oldest first
    uint64_t last_number = 0;
};
