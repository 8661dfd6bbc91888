#include "protocol/socket_io.h"

#include "platform/errors.h"
#include "platform/heap.h"

namespace {

// More than any sound exchange takes: an endless reply ends here.
constexpr uint64_t RECEIVE_LIMIT = 256U << 20;

struct socket_state {
    uint32_t dirty; // something was written since the last flush
    socket_handle socket;
    uint64_t received;
};

} // namespace

static socket_state *state_of(const io *stream) {
    return static_cast<socket_state *>(stream->state);
}

static const char *socket_read(io *stream, void *buffer, size_t count) {
    socket_state *state = state_of(stream);
    if (state->dirty != 0) stream->flush(stream);
    state->received += count;
    if (state->received > RECEIVE_LIMIT) return "Error receiving data: the reply does not end";
    auto *at = static_cast<char *>(buffer);
    while (count > 0) {
        size_t got = 0;
        if (auto *failure = socket_recv(state->socket, at, count, &got))
            return format_error("Error receiving data: %s", failure);
        if (got == 0) return "Peer closed connection unexpectedly";
        at += got;
        count -= got;
    }
    state->dirty = 0;
    return nullptr;
}

static const char *socket_write_buf(io *stream, const void *buffer, size_t count) {
    socket_state *state = state_of(stream);
    if (auto *failure = socket_send(state->socket, buffer, count))
        return format_error("socket_send returned error in socket_write_buf: %s", failure);
    state->dirty = 1;
    return nullptr;
}

static const char *flush(io *stream) {
    socket_state *state = state_of(stream);
    if (auto *failure = socket_flush(state->socket))
        return format_error("socket_flush returned error: %s", failure);
    state->dirty = 0;
    return nullptr;
}

static bool wait_readable(io *stream, int32_t seconds) {
    return socket_wait_readable(state_of(stream)->socket, seconds);
}

static void close_stream(io *stream) {
    socket_state *state = state_of(stream);
    if (state->dirty != 0) flush(stream);
    socket_close(state->socket);
    heap_free(state);
    heap_free(stream);
}

const char *socket_io_create(io **out, uint32_t address, uint16_t port, uint32_t options) {
    *out = nullptr;
    guard<io, heap_free> stream(heap_new<io>());
    guard<socket_state, heap_free> state(heap_new<socket_state>());
    if (stream == nullptr || state == nullptr) return "Error allocating memory";
    if (auto *failure = socket_create(address, port, &state->socket, options | SOCKET_STREAM)) return failure;
    *stream = {.read = socket_read,
               .write = socket_write_buf,
               .flush = flush,
               .wait_readable = wait_readable,
               .close = close_stream,
               .state = state.release()};
    *out = stream.release();
    return nullptr;
}

socket_handle socket_io_handle(const io *stream) {
    return state_of(stream)->socket;
}
