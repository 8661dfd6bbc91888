#include "fakes/memory_io.h"

#include <cstring>

static memory_io *of(io *stream) {
    return static_cast<memory_io *>(stream->state);
}

static bool refuses(memory_io *memory) {
    memory->calls++;
    if (memory->fail_call > 1) {
        memory->fail_call--;
        return false;
    }
    return memory->fail_call == 1;
}

static const char *read_bytes(io *stream, void *buffer, size_t count) {
    memory_io *memory = of(stream);
    if (refuses(memory)) return MEMORY_IO_FAILED;
    if (memory->input.size() - memory->position < count && memory->starved) memory->starved();
    if (memory->input.size() - memory->position < count) return MEMORY_IO_EMPTY;
    memcpy(buffer, memory->input.data() + memory->position, count);
    memory->position += count;
    return nullptr;
}

static const char *write_bytes(io *stream, const void *buffer, size_t count) {
    memory_io *memory = of(stream);
    if (refuses(memory)) return MEMORY_IO_FAILED;
    memory->written.append(static_cast<const char *>(buffer), count);
    return nullptr;
}

static const char *flush(io *stream) {
    memory_io *memory = of(stream);
    if (refuses(memory)) return MEMORY_IO_FAILED;
    memory->flushes++;
    return nullptr;
}

static bool wait_readable(io *stream, int32_t seconds) {
    of(stream)->waits.push_back(seconds);
    return true;
}

static void close_stream(io *stream) {
    of(stream)->closes++;
}

memory_io::memory_io(std::string to_read)
    : stream{.read = read_bytes,
             .write = write_bytes,
             .flush = flush,
             .wait_readable = wait_readable,
             .close = close_stream,
             .state = this},
      input(std::move(to_read)) {}

std::string memory_io::left() const {
    return input.substr(position);
}
