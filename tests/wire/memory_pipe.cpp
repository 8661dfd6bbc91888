#include "wire/memory_pipe.h"

#include "wire/scripted_server.h"

#include <cstring>

// The functions of a stream's table.
struct pipe_calls {
    static memory_pipe::end_name *name_of(io *stream) {
        return static_cast<memory_pipe::end_name *>(stream->state);
    }

    static const char *read(io *stream, void *buffer, size_t count) {
        auto [pipe, end] = *name_of(stream);
        std::unique_lock held(pipe->lock);
        pipe_end &own = pipe->ends[end];
        const pipe_end &other = pipe->ends[1 - end];
        pipe->changed.wait(held, [&] { return own.coming.size() >= count || other.closed || own.closed; });
        if (own.coming.size() < count) return "Peer closed connection unexpectedly";
        memcpy(buffer, own.coming.data(), count);
        own.coming.erase(0, count);
        return nullptr;
    }

    static const char *write(io *stream, const void *buffer, size_t count) {
        auto [pipe, end] = *name_of(stream);
        std::lock_guard held(pipe->lock);
        if (pipe->ends[1 - end].closed) return "Broken pipe";
        pipe->ends[1 - end].coming.append(static_cast<const char *>(buffer), count);
        pipe->ends[end].written.append(static_cast<const char *>(buffer), count);
        pipe->changed.notify_all();
        return nullptr;
    }

    static const char *flush(io *stream) {
        auto [pipe, end] = *name_of(stream);
        std::lock_guard held(pipe->lock);
        pipe->ends[end].flushes++;
        return nullptr;
    }

    static bool wait_readable(io *stream, int32_t) {
        auto [pipe, end] = *name_of(stream);
        std::unique_lock held(pipe->lock);
        const pipe_end &own = pipe->ends[end];
        const pipe_end &other = pipe->ends[1 - end];
        pipe->changed.wait(held, [&] { return !own.coming.empty() || other.closed || own.closed; });
        return true;
    }

    static void close(io *stream) {
        auto [pipe, end] = *name_of(stream);
        std::lock_guard held(pipe->lock);
        pipe->ends[end].closed = true;
        pipe->changed.notify_all();
    }
};

memory_pipe::memory_pipe() : names{{this, 0}, {this, 1}} {
    for (int end = 0; end < 2; end++)
        streams[end] = {.read = pipe_calls::read,
                        .write = pipe_calls::write,
                        .flush = pipe_calls::flush,
                        .wait_readable = pipe_calls::wait_readable,
                        .close = pipe_calls::close,
                        .state = &names[end]};
    agent = &streams[0];
    server = &streams[1];
}

memory_pipe::~memory_pipe() = default;

void memory_pipe::answer(const std::string &bytes) {
    std::lock_guard held(lock);
    ends[0].coming += bytes;
    changed.notify_all();
}

void memory_pipe::close_server_end() {
    pipe_calls::close(server);
}

served_pipe::served_pipe(scripted_server &server, memory_pipe &of)
    : pipe(of), thread([&server, &of] { server.serve(of.server); }) {}

served_pipe::~served_pipe() {
    finish();
}

void served_pipe::finish() {
    if (!thread.joinable()) return;
    pipe_calls::close(&pipe.streams[0]);
    thread.join();
}
