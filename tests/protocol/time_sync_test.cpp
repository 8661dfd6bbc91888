#include "protocol/time_sync.h"

#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "protocol/wire.h"

#include <gtest/gtest.h>

class server_time : public testing::Test {
protected:
    server_time() { time_offset = 77; }
    ~server_time() override { time_offset = 0; }

    static std::string answer(int64_t seconds, int64_t microseconds = 0) {
        return wire_record("78", wire_integer(seconds) + wire_integer(microseconds));
    }
    // One exchange whose answer takes some seconds.
    std::string sync(const std::string &reply, int64_t takes = 0) {
        memory_io stream;
        stream.starved = [&] {
            EXPECT_EQ(stream.flushes, 1);
            host.now += takes;
            stream.input += reply;
        };
        std::string failure = noted_failure(sync_server_time(stream));
        sent = wire_words(stream.written);
        closes = stream.closes;
        return failure;
    }

    test_host host;
    std::string sent;
    int closes = 0;
};

TEST_F(server_time, is_asked_with_the_own_time) {
    EXPECT_EQ(sync(answer(1'000'000'000)), "(none)");
    EXPECT_EQ(sent, "77{1000000000 0}");
    EXPECT_EQ(closes, 0);
}

TEST_F(server_time, gives_how_far_the_clock_is_ahead) {
    EXPECT_EQ(sync(answer(1'000'000'000 - 100)), "(none)");
    EXPECT_EQ(time_offset, 100);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Time offset is 100"));
    EXPECT_EQ(sync(answer(1'000'000'000 + 100)), "(none)");
    EXPECT_EQ(time_offset, -100);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Time offset is -100"));
}

TEST_F(server_time, is_taken_from_the_middle_of_the_exchange) {
    EXPECT_EQ(sync(answer(1'000'000'000), 10), "(none)");
    EXPECT_EQ(time_offset, 5);
}

TEST_F(server_time, halves_odd_seconds_downwards) {
    EXPECT_EQ(sync(answer(1'000'000'000), 5), "(none)");
    EXPECT_EQ(time_offset, 3); // five seconds later, less two
    host.now = 1'000'000'000;
    EXPECT_EQ(sync(answer(1'000'000'000), -5), "(none)");
    EXPECT_EQ(time_offset, -3); // a clock that was put back: towards zero as well
}

TEST_F(server_time, does_not_look_at_microseconds) {
    EXPECT_EQ(sync(answer(1'000'000'000, 999'999)), "(none)");
    EXPECT_EQ(time_offset, 0);
}

TEST_F(server_time, is_asked_with_the_low_32_bits) {
    host.now = 0x1'8000'0005;
    EXPECT_EQ(sync(answer(0)), "(none)");
    EXPECT_EQ(sent, "77{-2147483643 0}");
    EXPECT_EQ(time_offset, 0x1'8000'0005);
}

TEST_F(server_time, closes_the_stream_and_keeps_the_offset_when_it_fails) {
    EXPECT_EQ(sync(""), MEMORY_IO_EMPTY);
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(sync(wire_record("63", wire_text("no"))),
              "Wrong tag (27) encountered in read_server_time_resp");
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(time_offset, 77);
}

TEST_F(server_time, closes_the_stream_once_wherever_it_fails) {
    memory_io whole(answer(5));
    EXPECT_SUCCESS(sync_server_time(whole));
    for (uint32_t call = 1; call <= whole.calls; call++) {
        memory_io stream(answer(5));
        stream.fail_call = call;
        EXPECT_TRUE(noted_failure(sync_server_time(stream)).ends_with(MEMORY_IO_FAILED));
        EXPECT_EQ(stream.closes, 1);
    }
}
