#include "bench/streams.h"

#include "crypto/cipher_stream.h"
#include "platform/sockets.h"
#include "protocol/socket_io.h"

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr const char *KEY = "000102030405060708090a0b0c0d0e0f";
static constexpr const char *NO_KEY = "none";

static const char *swallow(io *stream, const void *buffer, size_t count) {
    benchmark::DoNotOptimize(buffer);
    static_cast<sink *>(stream->state)->bytes += count;
    return nullptr;
}

static const char *repeat(io *stream, void *buffer, size_t count) {
    auto *from = static_cast<source *>(stream->state);
    memcpy(buffer, from->bytes.data() + from->at, count);
    from->at += count;
    if (from->at == from->bytes.size()) from->at = 0;
    return nullptr;
}

static const char *flush_nothing(io *) {
    return nullptr;
}

static void close_nothing(io *) {}

sink::sink() : stream{.write = swallow, .flush = flush_nothing, .close = close_nothing, .state = this} {}

source::source(std::string content)
    : stream{.read = repeat, .flush = flush_nothing, .close = close_nothing, .state = this},
      bytes(std::move(content)) {}

static void take_all(int connection) {
    char buffer[65536];
    while (read(connection, buffer, sizeof buffer) > 0) {
    }
    close(connection);
}

// A socket that listens at a free port of the loopback interface.
static int listen_at(uint16_t *out_port) {
    int file = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof own;
    auto *address = reinterpret_cast<sockaddr *>(&own);
    if (bind(file, address, size) != 0 || listen(file, 1) != 0 || getsockname(file, address, &size) != 0) {
        close(file);
        return -1;
    }
    *out_port = ntohs(own.sin_port);
    return file;
}

loopback::loopback() {
    uint16_t port = 0;
    int door = listen_at(&port);
    if (door < 0) return;
    if (socket_io_create(&stream, htonl(INADDR_LOOPBACK), port, SOCKET_NONBLOCKING) == nullptr)
        reader = std::thread(take_all, accept(door, nullptr, nullptr));
    close(door);
}

loopback::~loopback() {
    if (reader.joinable()) reader.join();
}

io *cipher_over(io *below, bool enciphered) {
    return cipher_stream_new(below, enciphered ? KEY : NO_KEY);
}
