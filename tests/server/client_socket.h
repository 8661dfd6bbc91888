// A client's socket for tests of the server: it connects on the loopback interface, and waits for nothing
// longer than any test takes.
#pragma once

#include "server/scripted_agent.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

class client_socket {
public:
    explicit client_socket(uint16_t port) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        timeval patience = {.tv_sec = 20};
        setsockopt(handle, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(handle, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    ~client_socket() { leave(); }
    client_socket(const client_socket &) = delete;

    // False when the server has closed.
    bool write(const std::string &bytes) {
        return send(handle, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    std::string read(size_t count) {
        if (count == 0) return ""; // which a socket would wait for
        std::string bytes(count, '\0');
        ssize_t got = recv(handle, bytes.data(), count, MSG_WAITALL);
        return bytes.substr(0, got > 0 ? static_cast<size_t>(got) : 0);
    }
    // Whether the server has closed, within so many milliseconds.
    bool is_cut(int within_ms) {
        pollfd wanted = {.fd = handle, .events = POLLIN};
        char byte;
        return poll(&wanted, 1, within_ms) > 0 && recv(handle, &byte, 1, 0) <= 0;
    }
    void wait_for_bytes() {
        char byte;
        recv(handle, &byte, 1, MSG_PEEK);
    }
    void end_sending() { shutdown(handle, SHUT_WR); }
    void leave() {
        if (handle >= 0) ::close(handle);
        handle = -1;
    }
    agent_line line() {
        return {.write = [this](const std::string &bytes) { write(bytes); },
                .read = [this](size_t count) { return read(count); }};
    }

private:
    int handle = socket(AF_INET, SOCK_STREAM, 0);
};
