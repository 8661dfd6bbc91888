#include "protocol/time_sync.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "protocol/records.h"

int64_t time_offset;

static const char *ask_time(io *stream, int64_t t1, server_time_resp *out) {
    server_time_req request = {.agentTimeSec = static_cast<int32_t>(t1), .agentTimeUSec = 0};
    if (auto *failure = write_server_time_req(stream, &request)) return failure;
    if (auto *failure = stream->flush(stream)) return failure;
    return read_server_time_resp(stream, out, 0);
}

const char *sync_server_time(io *stream) {
    int64_t t1 = time_now();
    server_time_resp response;
    if (auto *failure = ask_time(stream, t1, &response)) {
        stream->close(stream);
        return failure;
    }
    int64_t t2 = time_now();
    time_offset = t2 - (t2 - t1) / 2 - response.serverTimeSec;
    agent_log(LOG_DETAIL, "Time offset is %i", static_cast<int>(time_offset));
    return nullptr;
}
