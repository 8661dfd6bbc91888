#include "server/listener.h"

#include "platform/errors.h"
#include "server/connection_table.h"
#include "server/options.h"
#include "server/socket_stream.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

using steady = std::chrono::steady_clock;

constexpr int BACKLOG = 256;
constexpr int IDLE_MS = 1000;
constexpr auto PAUSE_WITHOUT_DESCRIPTORS = std::chrono::milliseconds(50);

void cut_socket(int socket) {
    shutdown(socket, SHUT_RDWR);
}

std::string address_text(const sockaddr_storage &address, socklen_t size, bool with_port) {
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host, sizeof host, port, sizeof port,
                NI_NUMERICHOST | NI_NUMERICSERV);
    if (!with_port) return host;
    return address.ss_family == AF_INET6 ? format_error("[%s]:%s", host, port)
                                         : format_error("%s:%s", host, port);
}

const stream_limits &limits_of(const listener_limits &limits, session_stage stage) {
    switch (stage) {
    case session_stage::opening:
        return limits.opening;
    case session_stage::scan:
        return limits.scan;
    case session_stage::upgrade:
        return limits.upgrade;
    default:
        return limits.exchange;
    }
}

void serve_connection(const server_ports &ports, const listener_limits &limits, connection_table &table,
                      uint64_t number, int socket, const std::string &address) {
    io *stream = socket_stream_new(socket, limits.opening);
    if (stream == nullptr) return;
    session_link link = {.stream = stream, .address = address};
    link.enter_stage = [stream, &limits](session_stage stage) {
        socket_stream_limit(stream, limits_of(limits, stage));
    };
    link.admit = [&table, number](int64_t agent_id) { return table.name_agent(number, agent_id); };
    run_session(ports, link);
}

} // namespace

// The threads of connections, joined as they end.
class thread_list {
public:
    ~thread_list() { join_all(); }

    // False when the system has no thread to give.
    template <class Body>
    bool start(Body body) {
        entry &added = entries.emplace_back();
        try {
            added.thread = std::thread([&added, body] {
                body();
                added.ended = true;
            });
        } catch (const std::system_error &) {
            entries.pop_back();
            return false;
        }
        return true;
    }

    void join_ended() {
        entries.remove_if([](entry &candidate) {
            if (!candidate.ended) return false;
            candidate.thread.join();
            return true;
        });
    }

private:
    struct entry {
        std::thread thread;
        std::atomic<bool> ended = false;
    };

    void join_all() {
        for (entry &left : entries)
            left.thread.join();
    }

    std::list<entry> entries;
};

listener::~listener() {
    for (int file : {socket, wake[0], wake[1]})
        if (file >= 0) close(file);
}

static const char *listen_at(int socket, const addrinfo *place) {
    int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(socket, place->ai_addr, place->ai_addrlen) != 0 || listen(socket, BACKLOG) != 0)
        return strerrordesc_np(errno);
    return nullptr;
}

const char *listener::open(const std::string &address, std::string *out_address) {
    std::string host;
    std::string port;
    if (!split_address(address, &host, &port))
        return format_error("\"%s\" is not ADDRESS:PORT", address.c_str());
    addrinfo wanted = {};
    wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (int code = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &wanted, &found);
        code != 0)
        return format_error("cannot listen at %s: %s", address.c_str(), gai_strerror(code));
    socket = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const char *failure = socket < 0 ? strerrordesc_np(errno) : listen_at(socket, found);
    freeaddrinfo(found);
    if (failure == nullptr && pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) failure = strerrordesc_np(errno);
    if (failure != nullptr) return format_error("cannot listen at %s: %s", address.c_str(), failure);
    sockaddr_storage bound = {};
    socklen_t size = sizeof bound;
    getsockname(socket, reinterpret_cast<sockaddr *>(&bound), &size);
    *out_address = address_text(bound, size, true);
    return nullptr;
}

void listener::stop() {
    stops++;
    int saved = errno;
    [[maybe_unused]] ssize_t ignored = write(wake[1], "", 1);
    errno = saved;
}

// A socket, or -1.
int listener::accept_one(std::string *out_address) {
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    int accepted = accept4(socket, reinterpret_cast<sockaddr *>(&address), &size, SOCK_CLOEXEC);
    if (accepted < 0) return -1;
    int on = 1;
    setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(accepted, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    *out_address = address_text(address, size, false);
    return accepted;
}

void listener::wait_for_sessions(connection_table &table) {
    auto end = steady::now() + std::chrono::milliseconds(limits.patience_ms);
    while (table.size() > 0 && stops < 2 && steady::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    table.cut_all();
}

// Takes one connection that waits, and gives it a thread.
void listener::take_connection(const server_ports &ports, connection_table &table, thread_list &threads) {
    std::string address;
    int accepted = accept_one(&address);
    if (accepted < 0) {
        if (errno != EAGAIN) // out of descriptors, most likely: some will come back
            std::this_thread::sleep_for(PAUSE_WITHOUT_DESCRIPTORS);
        return;
    }
    uint64_t number = table.add(accepted);
    bool started = number != 0 && threads.start([this, &ports, &table, number, accepted, address] {
        serve_connection(ports, limits, table, number, accepted, address);
        table.remove(number); // from here on nobody cuts the socket, whose number may be used again
        close(accepted);
    });
    if (started) return;
    if (number != 0) table.remove(number);
    close(accepted);
}

void listener::serve(const server_ports &ports, const std::function<void()> &idle) {
    connection_table table(limits.connections, limits.connections_of_agent, cut_socket);
    thread_list threads;
    auto next_idle = steady::now();
    while (stops == 0) {
        pollfd wanted[] = {{.fd = socket, .events = POLLIN}, {.fd = wake[0], .events = POLLIN}};
        poll(wanted, std::size(wanted), IDLE_MS);
        threads.join_ended();
        if (steady::now() >= next_idle) {
            idle();
            next_idle = steady::now() + std::chrono::milliseconds(IDLE_MS);
        }
        if ((wanted[0].revents & POLLIN) != 0) take_connection(ports, table, threads);
    }
    close(std::exchange(socket, -1)); // so that agents turn to another server at once
    wait_for_sessions(table);
}
