#include "protocol/downtime.h"

#include "platform/agent_log.h"
#include "platform/heap.h"
#include "protocol/records.h"

#include <cstdio>
#include <cstring>

static constexpr size_t WORD_ROOM = 9; // "FAILURE", a blank and the end

static const char *exchange(io *stream, int32_t minutes, downtime_resp *out) {
    downtime_req request = {.downtimeInMinutes = minutes};
    if (auto *failure = write_downtime_req(stream, &request)) return failure;
    if (auto *failure = stream->flush(stream)) return failure;
    return read_downtime_resp(stream, out, 0);
}

const char *request_downtime(io *stream, int32_t minutes, char *text, size_t size) {
    downtime_resp response;
    if (auto *failure = exchange(stream, minutes, &response)) {
        stream->close(stream);
        return failure;
    }
    text_guard message(response.message);
    bool granted = response.success == 1;
    agent_log(LOG_DETAIL, "[cmd] Request downtime. Server says %s", granted ? "OK" : "FAILED");
    if (strlen(message.get()) + WORD_ROOM >= size) return MESSAGE_TOO_BIG;
    snprintf(text, size, "%s %s", granted ? "OK" : "FAILURE", message.get());
    text[size - 1] = '\0';
    return nullptr;
}
