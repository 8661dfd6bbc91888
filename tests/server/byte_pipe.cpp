#include "server/byte_pipe.h"

#include "server/socket_stream.h"

#include <chrono>
#include <cstring>

static constexpr auto LONGEST_SILENCE = std::chrono::seconds(20);

void byte_pipe::write(const std::string &more) {
    std::lock_guard lock(mutex);
    bytes += more;
    changed.notify_all();
}

void byte_pipe::close() {
    std::lock_guard lock(mutex);
    closed = true;
    changed.notify_all();
}

std::string byte_pipe::read(size_t count) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, LONGEST_SILENCE, [&] { return closed || bytes.size() - at >= count; });
    std::string taken = bytes.substr(at, count);
    at += taken.size();
    return taken;
}

static memory_connection *connection_of(io *stream) {
    return static_cast<memory_connection *>(stream->state);
}

static const char *stream_read(io *stream, void *buffer, size_t count) {
    std::string taken = connection_of(stream)->to_server.read(count);
    memcpy(buffer, taken.data(), taken.size());
    if (taken.size() == count) return nullptr;
    bool in_order = taken.empty() && connection_of(stream)->end == peer_end::in_order;
    return in_order ? STREAM_ENDED : "the line is dead";
}

static const char *stream_write(io *stream, const void *buffer, size_t count) {
    connection_of(stream)->to_agent.write(std::string(static_cast<const char *>(buffer), count));
    return nullptr;
}

static const char *stream_flush(io *) {
    return nullptr;
}

static bool stream_wait_readable(io *, int32_t) {
    return true;
}

static void stream_close(io *stream) {
    connection_of(stream)->to_agent.close();
    delete stream;
}

io *memory_stream_new(memory_connection *connection) {
    return new io{.read = stream_read,
                  .write = stream_write,
                  .flush = stream_flush,
                  .wait_readable = stream_wait_readable,
                  .close = stream_close,
                  .state = connection};
}
