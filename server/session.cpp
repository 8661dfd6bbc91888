#include "server/session.h"

#include "server/limits.h"
#include "server/session_state.h"
#include "server/socket_stream.h"

#include <new>

const char *const SESSION_OVER = "the session is over";

const char *refuse(session &s, const std::string &reason) {
    record_writer writer = s.writer();
    writer.negotiate_nack(reason);
    s.ports.observer->refused(s.label, s.link.address, reason);
    const char *failure = writer.flush(); // an agent that is gone does not hear it
    return failure != nullptr ? failure : SESSION_OVER;
}

// Messages until the agent closes, which it may do in place of any.
static const char *converse(session &s) {
    while (true) {
        s.memory.give_all();
        record_reader reader = s.reader();
        uint32_t tag = reader.tag();
        bool ended = reader.failure() == STREAM_ENDED;
        if (reader.failure() != nullptr && !ended) return reader.failure();
        // Whether it goes on or closes in order: an agent does either only when it has read what it was sent.
        if (auto *failure = confirm_answer(s)) return failure;
        if (ended) return nullptr;
        if (++s.messages > MAX_MESSAGES) return "too many messages";
        if (auto *failure = answer_message(s, tag)) return failure;
    }
}

static const char *serve(session &s) {
    s.enter(session_stage::opening);
    if (auto *failure = open_session(s)) return failure;
    s.enter(session_stage::exchange);
    return converse(s);
}

void run_session(const server_ports &ports, const session_link &link) {
    session s = {.ports = ports,
                 .link = link,
                 .memory = memory_share(ports.memory, CONNECTION_MEMORY),
                 .stream = link.stream};
    const char *failure = nullptr;
    try {
        failure = serve(s);
    } catch (const std::bad_alloc &) {
        failure = "out of memory";
    }
    // Who opens a connection and closes it without a word wants to know whether somebody listens.
    bool knocked = failure == STREAM_ENDED && s.label.empty();
    if (failure != nullptr && failure != SESSION_OVER && !knocked)
        ports.observer->failed(s.label, link.address, failure);
    s.stream->close(s.stream);
}
