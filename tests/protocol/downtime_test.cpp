#include "protocol/downtime.h"

#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "protocol/wire.h"

#include <cstring>
#include <gtest/gtest.h>

class downtime_request : public testing::Test {
protected:
    ~downtime_request() override { EXPECT_EQ(host.blocks, 0); }

    static std::string answer(bool success, const std::string &message) {
        return wire_record("7F 1F", wire_bool(success) + wire_text(message));
    }
    std::string ask(const std::string &reply, size_t size = 1024) {
        memory_io stream(reply);
        memset(text, 'x', sizeof text);
        std::string failure = noted_failure(request_downtime(stream, 90, text, size));
        sent = wire_words(stream.written);
        closes = stream.closes;
        return failure;
    }

    test_host host;
    char text[1024];
    std::string sent;
    int closes = 0;
};

TEST_F(downtime_request, asks_for_minutes) {
    EXPECT_EQ(ask(answer(true, "granted")), "(none)");
    EXPECT_EQ(sent, "7E{90}");
}

TEST_F(downtime_request, tells_what_the_server_grants) {
    EXPECT_EQ(ask(answer(true, "until noon")), "(none)");
    EXPECT_STREQ(text, "OK until noon");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] Request downtime. Server says OK"));
    EXPECT_EQ(closes, 0);
}

TEST_F(downtime_request, tells_what_the_server_refuses) {
    EXPECT_EQ(ask(answer(false, "")), "(none)");
    EXPECT_STREQ(text, "FAILURE ");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] Request downtime. Server says FAILED"));
}

TEST_F(downtime_request, ends_the_text_at_the_end_of_its_buffer) {
    EXPECT_EQ(ask(answer(true, "yes"), 100), "(none)");
    EXPECT_EQ(text[98], 'x');
    EXPECT_EQ(text[99], '\0');
    EXPECT_EQ(text[100], 'x');
}

TEST_F(downtime_request, takes_a_message_that_leaves_nine_bytes_and_its_end) {
    EXPECT_EQ(ask(answer(false, std::string(90, 'm')), 100), "(none)");
    EXPECT_EQ(std::string(text), "FAILURE " + std::string(90, 'm'));
}

TEST_F(downtime_request, refuses_a_message_that_is_longer_and_leaves_the_stream_open) {
    EXPECT_EQ(ask(answer(false, std::string(91, 'm')), 100), "message too big");
    EXPECT_EQ(closes, 0);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "[cmd] Request downtime. Server says FAILED"));
    EXPECT_EQ(ask(answer(true, ""), 9), "message too big");
    EXPECT_EQ(ask(answer(true, ""), 0), "message too big");
    EXPECT_EQ(text[0], 'x');
}

TEST_F(downtime_request, closes_the_stream_when_the_exchange_fails) {
    EXPECT_EQ(ask(""), MEMORY_IO_EMPTY);
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(ask(answer(true, std::string(1025, 'm'))),
              "downtime_resp.message: data out of range in read_string");
    EXPECT_EQ(closes, 1);
}

TEST_F(downtime_request, closes_the_stream_once_wherever_it_fails) {
    memory_io whole(answer(true, "yes"));
    EXPECT_SUCCESS(request_downtime(whole, 90, text, sizeof text));
    EXPECT_EQ(whole.flushes, 1);
    for (uint32_t call = 1; call <= whole.calls; call++) {
        memory_io stream(answer(true, "yes"));
        stream.fail_call = call;
        EXPECT_TRUE(
            noted_failure(request_downtime(stream, 90, text, sizeof text)).ends_with(MEMORY_IO_FAILED));
        EXPECT_EQ(stream.closes, 1);
    }
}
