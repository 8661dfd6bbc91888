// A server for measuring the agent as a process: it orders the same twenty real checks, every 10 seconds, on
// any host.
//
// usage: bench_server [CHECKS]
//
// Prints the port that it listens at, and serves until it is ended.

#include "wire/scripted_server.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int32_t CHECK_PERIOD = 10;   // seconds
constexpr int32_t CHECKIN_PERIOD = 30; // seconds

int file_of(const io *stream) {
    return static_cast<int>(reinterpret_cast<intptr_t>(stream->state));
}

const char *read_all(io *stream, void *buffer, size_t count) {
    auto *at = static_cast<char *>(buffer);
    while (count > 0) {
        ssize_t got = read(file_of(stream), at, count);
        if (got <= 0) return "the agent has closed";
        at += got;
        count -= static_cast<size_t>(got);
    }
    return nullptr;
}

const char *write_all(io *stream, const void *buffer, size_t count) {
    ssize_t sent = send(file_of(stream), buffer, count, MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(count) ? nullptr : "the agent has closed";
}

const char *flush_nothing(io *) {
    return nullptr;
}

void close_file(io *stream) {
    close(file_of(stream));
}

// What every host has: a file system, its memory and its load. The two rates stand once; the others are
// repeated, in groups of their own, as often as it takes.
std::vector<wire::group> make_checks(int count) {
    std::vector<wire::group> families = {
        {.id = "fs"},
        {.id = "mem"},
        {.id = "system",
         .checks = {wire::continuous("idle", CHECK_PERIOD), wire::continuous("cswitch", CHECK_PERIOD)}}};
    const std::vector<std::vector<wire::check>> repeated = {
        {wire::real("/", CHECK_PERIOD)},
        {wire::real("phys", CHECK_PERIOD), wire::real("swap", CHECK_PERIOD),
         wire::real("virt", CHECK_PERIOD)},
        {wire::continuous("uptime", CHECK_PERIOD)},
    };
    count -= 2;
    for (int round = 0; count > 0; round++)
        for (size_t i = 0; i < families.size() && count > 0; i++) {
            wire::group below = {.id = "round-" + std::to_string(round)};
            for (const wire::check &one : repeated[i])
                if (count-- > 0) below.checks.push_back(one);
            families[i].groups.push_back(below);
        }
    return families;
}

int listen_at(uint16_t *out_port) {
    int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof own;
    auto *address = reinterpret_cast<sockaddr *>(&own);
    if (bind(file, address, size) != 0 || listen(file, 8) != 0 || getsockname(file, address, &size) != 0)
        return -1;
    *out_port = ntohs(own.sin_port);
    return file;
}

void tell(const scripted_server &server) {
    for (const std::string &text : server.violations)
        printf("violation: %s\n", text.c_str());
    printf("connections %zu, registrations %u, checkins %u, results %zu\n", server.connections.size(),
           server.registrations, server.checkins, server.results().size());
    fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    scripted_server server;
    server.clock = [] { return static_cast<int64_t>(time(nullptr)); };
    server.checkin_frequency = CHECKIN_PERIOD;
    server.checks = make_checks(argc > 1 ? atoi(argv[1]) : 20);
    uint16_t port = 0;
    int door = listen_at(&port);
    if (door < 0) return 1;
    printf("listens at 127.0.0.1:%u\n", static_cast<unsigned>(port));
    fflush(stdout);
    for (;;) {
        int file = accept4(door, nullptr, nullptr, SOCK_CLOEXEC);
        if (file < 0) continue;
        io stream = {.read = read_all,
                     .write = write_all,
                     .flush = flush_nothing,
                     .close = close_file,
                     .state = reinterpret_cast<void *>(static_cast<intptr_t>(file))};
        server.serve(&stream);
        tell(server);
    }
}
