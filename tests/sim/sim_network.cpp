#include "sim/sim_network.h"

#include "sim/host_sim.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

static constexpr uint32_t CODE_BAD_SOCKET = 9;
static constexpr uint32_t CODE_WOULD_BLOCK = 11;
static constexpr uint32_t CODE_INVALID = 22;
static constexpr uint32_t CODE_BROKEN_PIPE = 32;
static constexpr uint32_t CODE_NO_BUFFERS = 105;
static constexpr uint32_t CODE_REFUSED = 111;
static constexpr uint32_t CODE_IN_PROGRESS = 115;
static constexpr uint32_t CODE_RESET = 104;

sim_place &sim_network::add(const std::string &name, uint16_t port,
                            std::function<void(io *, const std::string &)> serve) {
    auto last = static_cast<uint32_t>(places.size() + 1);
    // 10.0.1.n in network byte order on a host that keeps the low byte first.
    places.push_back(
        {.name = name, .address = 10 | 1U << 16 | last << 24, .port = port, .serve = std::move(serve)});
    return places.back();
}

sim_place &sim_network::place(const std::string &name) {
    return *std::find_if(places.begin(), places.end(),
                         [&](const sim_place &one) { return one.name == name; });
}

void sim_network::cut_links() {
    for (auto &[handle, link] : sockets)
        if (link) link->to_agent.closed = link->to_server.closed = true;
}

void sim_network::close_sockets() {
    for (auto &[handle, link] : sockets)
        if (link) link->to_server.closed = true;
    sockets.clear();
}

// ---- what is under way

static int64_t arrival() {
    const sim_network &network = the_sim->network;
    int64_t moment = the_sim->scheduler.now_ms + network.latency_ms;
    if (network.jitter_ms > 0)
        moment +=
            static_cast<int64_t>(the_sim->scheduler.chance() % static_cast<uint64_t>(network.jitter_ms + 1));
    return moment;
}

static void put(sim_stream *stream, const void *buffer, size_t count) {
    int64_t moment = arrival();
    // Bytes of one direction stay in order.
    if (!stream->under_way.empty()) moment = std::max(moment, stream->under_way.back().arrives_ms);
    stream->under_way.push_back({moment, {static_cast<const char *>(buffer), count}});
    the_sim->scheduler.wake_at(moment);
}

static void take_arrivals(sim_stream *stream) {
    while (!stream->under_way.empty() && stream->under_way.front().arrives_ms <= the_sim->scheduler.now_ms) {
        stream->bytes += stream->under_way.front().bytes;
        stream->under_way.pop_front();
    }
}

static bool at_end(const sim_stream &stream) {
    return stream.closed && stream.under_way.empty() && stream.bytes.empty();
}

// ---- the server's end

namespace {

struct server_end {
    io stream;
    std::shared_ptr<sim_link> link;
};

const char *server_read(io *stream, void *buffer, size_t count) {
    sim_stream *from = &static_cast<server_end *>(stream->state)->link->to_server;
    the_sim->scheduler.wait_until(
        [&] {
            take_arrivals(from);
            return from->bytes.size() >= count || (from->closed && from->under_way.empty());
        },
        NEVER);
    if (from->bytes.size() < count) return "the agent has closed";
    memcpy(buffer, from->bytes.data(), count);
    from->bytes.erase(0, count);
    return nullptr;
}

const char *server_write(io *stream, const void *buffer, size_t count) {
    auto *end = static_cast<server_end *>(stream->state);
    if (end->link->to_server.closed) return "the agent has closed";
    put(&end->link->to_agent, buffer, count);
    return nullptr;
}

const char *server_flush(io *) {
    return nullptr;
}

bool server_wait_readable(io *, int32_t) {
    return true;
}

void server_close(io *stream) {
    static_cast<server_end *>(stream->state)->link->to_agent.closed = true;
}

// The life of a connection behind the agent's end.
void serve_link(const sim_place *place, const std::shared_ptr<sim_link> &link, int64_t connects_ms) {
    the_sim->scheduler.sleep_until(connects_ms);
    if (place != nullptr)
        the_sim->scheduler.wait_until(
            [&] { return place->state != place_state::SWALLOWS || link->to_server.closed; }, NEVER);
    if (link->to_server.closed) return;
    if (place == nullptr || place->state == place_state::REFUSES) {
        link->error = CODE_REFUSED;
        return;
    }
    link->connected = true;
    server_end end = {.stream = {.read = server_read,
                                 .write = server_write,
                                 .flush = server_flush,
                                 .wait_readable = server_wait_readable,
                                 .close = server_close},
                      .link = link};
    end.stream.state = &end;
    place->serve(&end.stream, place->name);
    link->to_agent.closed = true;
}

} // namespace

// ---- the agent's sockets

static std::shared_ptr<sim_link> *find_socket(socket_handle handle) {
    auto found = the_sim->network.sockets.find(handle);
    if (found != the_sim->network.sockets.end()) return &found->second;
    the_sim->last_error = CODE_BAD_SOCKET;
    return nullptr;
}

// The call fails this time, with this code.
static bool fails(const char *name, socket_handle socket, uint32_t code) {
    if (!sim_fails(name, socket)) return false;
    the_sim->last_error = code;
    return true;
}

static int32_t sim_startup(uint16_t) {
    return sim_fails("WSAStartup") ? static_cast<int32_t>(CODE_NO_BUFFERS) : 0;
}

static uint32_t sim_inet_addr(const char *text) {
    unsigned a, b, c, d;
    char more;
    if (sscanf(text, "%3u.%3u.%3u.%3u%c", &a, &b, &c, &d, &more) != 4) return 0xFFFFFFFF;
    return a | b << 8 | c << 16 | d << 24;
}

static const char *sim_gethostbyname(const char *host, uint32_t *out_count, uint32_t *out_address) {
    *out_count = 0;
    if (sim_fails("gethostbyname", host)) return "Host name lookup failure";
    for (const sim_place &place : the_sim->network.places) {
        if (place.name != host) continue;
        *out_count = 1;
        *out_address = place.address;
        return nullptr;
    }
    return "Unknown host";
}

static socket_handle sim_socket_new() {
    socket_handle handle = the_sim->network.next_handle;
    if (fails("socket", handle, CODE_NO_BUFFERS)) return -1;
    the_sim->network.next_handle++;
    the_sim->network.sockets[handle] = {};
    return handle;
}

static bool sim_set_nonblocking(socket_handle socket, bool) {
    return !fails("ioctlsocket", socket, CODE_INVALID) && find_socket(socket) != nullptr;
}

static bool sim_set_nodelay(socket_handle socket, bool) {
    return !fails("setsockopt", socket, CODE_INVALID) && find_socket(socket) != nullptr;
}

static const sim_place *find_place(uint32_t address, uint16_t port) {
    for (const sim_place &place : the_sim->network.places)
        if (place.address == address && place.port == port) return &place;
    return nullptr;
}

static int32_t sim_connect(socket_handle handle, uint32_t address, uint16_t port) {
    auto *link = find_socket(handle);
    if (link == nullptr || fails("connect", handle, CODE_NO_BUFFERS)) return -1;
    the_sim->network.calls++;
    *link = std::make_shared<sim_link>();
    const sim_place *place = find_place(address, port);
    the_sim->scheduler.start("session " + std::to_string(the_sim->network.calls), false,
                             [=, of = *link, moment = arrival()] { serve_link(place, of, moment); });
    the_sim->last_error = CODE_IN_PROGRESS;
    return -1;
}

// The connected link of a socket that can be used now; otherwise absent, with the reason in last_error.
static sim_link *usable_link(socket_handle handle) {
    auto *link = find_socket(handle);
    if (link == nullptr) return nullptr;
    the_sim->last_error = CODE_WOULD_BLOCK;
    if (the_sim->network.chopped && the_sim->scheduler.chance() % 16 == 0) return nullptr;
    return *link != nullptr && (*link)->connected ? link->get() : nullptr;
}

// How much of it is taken this time.
static size_t portion(size_t count) {
    if (!the_sim->network.chopped || count < 2) return count;
    return 1 + the_sim->scheduler.chance() % count;
}

static int64_t sim_send(socket_handle handle, const void *buffer, size_t length) {
    if (fails("send", handle, CODE_RESET)) return -1;
    sim_link *link = usable_link(handle);
    if (link == nullptr) return -1;
    // The first bytes that reach nobody come back as a reset, which the next call learns.
    if (link->to_agent.closed && link->sends_to_nobody++ > 0) {
        the_sim->last_error = CODE_BROKEN_PIPE;
        return -1;
    }
    size_t count = portion(length);
    put(&link->to_server, buffer, count);
    return static_cast<int64_t>(count);
}

static int64_t sim_recv(socket_handle handle, void *buffer, size_t size) {
    if (fails("recv", handle, CODE_RESET)) return -1;
    sim_link *link = usable_link(handle);
    if (link == nullptr) return -1;
    sim_stream *from = &link->to_agent;
    take_arrivals(from);
    if (at_end(*from)) return 0;
    if (from->bytes.empty()) return -1;
    size_t count = portion(std::min(size, from->bytes.size()));
    memcpy(buffer, from->bytes.data(), count);
    from->bytes.erase(0, count);
    return static_cast<int64_t>(count);
}

static socket_readiness readiness(sim_link *link, const socket_readiness &wanted) {
    if (!link->connected) return {.exception = wanted.exception && link->error != 0};
    take_arrivals(&link->to_agent);
    bool readable = !link->to_agent.bytes.empty() || at_end(link->to_agent);
    return {.readable = wanted.readable && readable, .writable = wanted.writable};
}

static bool is_any(const socket_readiness &ready) {
    return ready.readable || ready.writable || ready.exception;
}

static int32_t sim_select(socket_handle handle, socket_readiness *wanted, uint32_t seconds) {
    auto *link = find_socket(handle);
    if (link == nullptr || *link == nullptr || fails("select", handle, CODE_INVALID)) return -1;
    socket_readiness ready;
    bool any = the_sim->scheduler.wait_until(
        [&, of = *link] {
            ready = readiness(of.get(), *wanted);
            return is_any(ready);
        },
        the_sim->scheduler.now_ms + seconds * INT64_C(1000));
    *wanted = ready;
    return any ? 1 : 0;
}

static bool sim_so_error(socket_handle handle, uint32_t *out_error) {
    auto *link = find_socket(handle);
    if (link == nullptr || fails("getsockopt", handle, CODE_INVALID)) return false;
    *out_error = *link != nullptr ? (*link)->error : 0;
    return true;
}

static void sim_shutdown(socket_handle handle) {
    sim_note("shutdown", handle);
    auto *link = find_socket(handle);
    if (link != nullptr && *link != nullptr) (*link)->to_server.closed = true;
}

static bool sim_closesocket(socket_handle handle) {
    auto *link = find_socket(handle);
    the_sim->network.vain_closes += link == nullptr;
    if (link == nullptr || fails("closesocket", handle, CODE_INVALID)) return false;
    if (*link != nullptr) (*link)->to_server.closed = true;
    the_sim->network.sockets.erase(handle);
    return true;
}

static bool sim_getsockname(socket_handle handle, uint32_t *out_address, uint16_t *out_port) {
    if (fails("getsockname", handle, CODE_NO_BUFFERS)) return false;
    *out_address = sim_inet_addr("10.0.0.7");
    *out_port = 40000;
    return true;
}

static bool sim_gethostname(char *buffer, size_t size) {
    if (sim_fails("gethostname")) return false;
    snprintf(buffer, size, "simhost");
    return true;
}

static bool sim_would_block(uint32_t error) {
    return error == CODE_WOULD_BLOCK || error == CODE_IN_PROGRESS;
}

const sockets_ops sim_sockets = {
    .WSAStartup = sim_startup,
    .inet_addr = sim_inet_addr,
    .gethostbyname = sim_gethostbyname,
    .socket = sim_socket_new,
    .set_nonblocking = sim_set_nonblocking,
    .set_nodelay = sim_set_nodelay,
    .connect = sim_connect,
    .send = sim_send,
    .recv = sim_recv,
    .select = sim_select,
    .so_error = sim_so_error,
    .shutdown = sim_shutdown,
    .closesocket = sim_closesocket,
    .getsockname = sim_getsockname,
    .gethostname = sim_gethostname,
    .would_block = sim_would_block,
};
