#include "server/socket_stream.h"

#include "platform/errors.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <linux/sockios.h>
#include <new>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>

const char *const STREAM_ENDED = "the agent closed the connection";

namespace {

using steady = std::chrono::steady_clock;

constexpr size_t IN_SIZE = 8192;
constexpr size_t OUT_LIMIT = 16384; // sent when there is this much
// How long a peer may take to close behind our own closing, and how much it may still send.
constexpr int LINGER_MS = 1000;
constexpr size_t LINGER_BYTES = 65536;

struct socket_state {
    io face;
    int socket;
    stream_limits limits;
    steady::time_point deadline;
    char in[IN_SIZE];
    size_t in_at, in_end;
    std::string out;
    bool over;       // the peer has closed or the socket is broken
    bool left_early; // the peer had closed before something was sent to it
};

socket_state *state_of(io *stream) {
    return static_cast<socket_state *>(stream->state);
}

const char *broken(socket_state *state, const char *failure) {
    state->over = true;
    return failure;
}

// Waits until the socket is ready, as long as the limits allow.
const char *wait_until_ready(socket_state *state, short events) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(state->deadline - steady::now()).count();
    if (left <= 0)
        return format_error("the connection took longer than %g seconds", state->limits.total_ms / 1000.0);
    int64_t wait_ms = std::min<int64_t>(left, state->limits.wait_ms);
    pollfd wanted = {.fd = state->socket, .events = events};
    int count = poll(&wanted, 1, static_cast<int>(std::min<int64_t>(wait_ms, INT_MAX)));
    if (count < 0 && errno != EINTR) return format_error("poll: %s", strerrordesc_np(errno));
    if (count == 0 && wait_ms == left)
        return format_error("the connection took longer than %g seconds", state->limits.total_ms / 1000.0);
    if (count == 0) return format_error("nothing moved for %g seconds", state->limits.wait_ms / 1000.0);
    return nullptr;
}

bool peer_has_left(int socket) {
    pollfd wanted = {.fd = socket, .events = POLLRDHUP};
    return poll(&wanted, 1, 0) > 0 && (wanted.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// Whether the peer has acknowledged every byte. A peer that closes with bytes unread resets the connection
// instead.
bool peer_has_taken_all(int socket) {
    int error = 0;
    int unsent = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0 &&
           ioctl(socket, SIOCOUTQ, &unsent) == 0 && unsent == 0;
}

const char *send_all(socket_state *state) {
    size_t sent = 0;
    const char *failure = nullptr;
    state->left_early = state->left_early || (!state->out.empty() && peer_has_left(state->socket));
    while (sent < state->out.size() && failure == nullptr) {
        ssize_t count = send(state->socket, state->out.data() + sent, state->out.size() - sent,
                             MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0)
            sent += static_cast<size_t>(count);
        else if (errno == EAGAIN)
            failure = wait_until_ready(state, POLLOUT);
        else if (errno != EINTR)
            failure = broken(state, format_error("sending: %s", strerrordesc_np(errno)));
    }
    state->out.clear();
    return failure;
}

const char *receive_some(socket_state *state, bool nothing_in_hand) {
    while (true) {
        ssize_t count = recv(state->socket, state->in, sizeof state->in, MSG_DONTWAIT);
        if (count > 0) {
            state->in_at = 0;
            state->in_end = static_cast<size_t>(count);
            if (state->in_end > state->limits.bytes) return "the agent sent too much";
            state->limits.bytes -= state->in_end;
            return nullptr;
        }
        if (count == 0 && nothing_in_hand && !state->left_early && peer_has_taken_all(state->socket))
            return broken(state, STREAM_ENDED);
        if (count == 0) return broken(state, "the agent closed the connection before its end");
        if (errno != EAGAIN && errno != EINTR)
            return broken(state, format_error("receiving: %s", strerrordesc_np(errno)));
        if (auto *failure = wait_until_ready(state, POLLIN)) return failure;
    }
}

const char *stream_read(io *stream, void *buffer, size_t count) {
    socket_state *state = state_of(stream);
    if (!state->out.empty())
        if (auto *failure = send_all(state)) return failure;
    auto *at = static_cast<char *>(buffer);
    for (size_t done = 0; done < count;) {
        if (state->in_at == state->in_end)
            if (auto *failure = receive_some(state, done == 0)) return failure;
        size_t piece = std::min(count - done, state->in_end - state->in_at);
        memcpy(at + done, state->in + state->in_at, piece);
        state->in_at += piece;
        done += piece;
    }
    return nullptr;
}

const char *stream_write(io *stream, const void *buffer, size_t count) {
    socket_state *state = state_of(stream);
    state->out.append(static_cast<const char *>(buffer), count);
    return state->out.size() >= OUT_LIMIT ? send_all(state) : nullptr;
}

const char *stream_flush(io *stream) {
    return send_all(state_of(stream));
}

bool stream_wait_readable(io *stream, int32_t seconds) {
    socket_state *state = state_of(stream);
    pollfd wanted = {.fd = state->socket, .events = POLLIN};
    return state->in_at < state->in_end || poll(&wanted, 1, seconds * 1000) > 0;
}

// A close with bytes unread would reset the connection and take our last words with it, so they are read and
// dropped.
void drain(socket_state *state) {
    steady::time_point end = steady::now() + std::chrono::milliseconds(LINGER_MS);
    for (size_t drained = 0; drained < LINGER_BYTES;) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady::now()).count();
        pollfd wanted = {.fd = state->socket, .events = POLLIN};
        if (left <= 0 || poll(&wanted, 1, static_cast<int>(left)) <= 0) return;
        ssize_t count = recv(state->socket, state->in, sizeof state->in, MSG_DONTWAIT);
        if (count <= 0) return;
        drained += static_cast<size_t>(count);
    }
}

void stream_close(io *stream) {
    socket_state *state = state_of(stream);
    if (!state->over && send_all(state) == nullptr && shutdown(state->socket, SHUT_WR) == 0) drain(state);
    delete state;
}

} // namespace

io *socket_stream_new(int socket, const stream_limits &limits) {
    auto *state = new (std::nothrow) socket_state();
    if (state == nullptr) return nullptr;
    state->face = {.read = stream_read,
                   .write = stream_write,
                   .flush = stream_flush,
                   .wait_readable = stream_wait_readable,
                   .close = stream_close,
                   .state = state};
    state->socket = socket;
    socket_stream_limit(&state->face, limits);
    return &state->face;
}

void socket_stream_limit(io *stream, const stream_limits &limits) {
    socket_state *state = state_of(stream);
    state->limits = limits;
    state->deadline = steady::now() + std::chrono::milliseconds(limits.total_ms);
}
