#include "protocol/socket_io.h"

#include "fakes/test_host.h"
#include "protocol/scripted_sockets.h"

#include <gtest/gtest.h>

class socket_stream : public testing::Test {
protected:
    socket_stream() {
        EXPECT_SUCCESS(socket_io_create(&stream, 0x0100007F, 3241, SOCKET_NONBLOCKING));
        connection = &sockets.last();
        connection->starved = [this] { asked++; };
    }
    ~socket_stream() override {
        if (stream != nullptr) stream->close(stream);
        EXPECT_EQ(sockets.open_connections(), 0);
        EXPECT_EQ(host.blocks, 0);
    }
    std::string read(size_t count) {
        std::string text(count, '?');
        std::string failure = noted_failure(stream->read(stream, text.data(), count));
        return failure == "(none)" ? text : failure;
    }

    test_host host;
    scripted_sockets sockets;
    io *stream = nullptr;
    scripted_connection *connection = nullptr;
    int asked = 0;
};

TEST_F(socket_stream, connects_to_the_address_without_blocking) {
    EXPECT_EQ(connection->address, 0x0100007FU);
    EXPECT_EQ(connection->port, 3241);
    EXPECT_TRUE(connection->nonblocking);
    EXPECT_EQ(socket_io_handle(stream), 100);
}

TEST_F(socket_stream, reads_exactly_what_is_wanted) {
    connection->to_receive = "abcdef";
    EXPECT_EQ(read(4), "abcd");
    EXPECT_EQ(read(2), "ef");
}

TEST_F(socket_stream, goes_on_until_all_bytes_are_in) {
    sockets.piece = 1;
    connection->to_receive = "abcdef";
    EXPECT_EQ(read(6), "abcdef");
}

TEST_F(socket_stream, asks_for_nothing_when_nothing_is_wanted) {
    EXPECT_EQ(read(0), "");
    EXPECT_EQ(asked, 0);
}

TEST_F(socket_stream, tells_a_peer_that_has_closed) {
    connection->to_receive = "abc";
    connection->peer_closed = true;
    EXPECT_EQ(read(4), "Peer closed connection unexpectedly");
}

TEST_F(socket_stream, tells_a_receive_that_fails) {
    sockets.receive_fails = true;
    EXPECT_EQ(
        read(1),
        "Error receiving data: Bad error happened without sleep in socket_recv(): system error 32 (32)");
}

TEST_F(socket_stream, tells_a_peer_that_stays_silent) {
    EXPECT_EQ(read(1), "Error receiving data: Timeout in socket_recv()");
    EXPECT_EQ(host.now, 1'000'000'600);
}

TEST_F(socket_stream, ends_a_reply_without_an_end) {
    connection->starved = [this] {
        connection->to_receive.assign(1U << 20, 'x');
        connection->received = 0;
    };
    std::string piece(1U << 20, '?');
    for (int i = 0; i < 256; i++)
        ASSERT_EQ(noted_failure(stream->read(stream, piece.data(), piece.size())), "(none)");
    EXPECT_EQ(read(1), "Error receiving data: the reply does not end");
}

TEST_F(socket_stream, sends_at_once) {
    EXPECT_SUCCESS(stream->write(stream, "ab", 2));
    EXPECT_EQ(connection->sent, "ab");
    EXPECT_SUCCESS(stream->write(stream, "c", 1));
    EXPECT_EQ(connection->sent, "abc");
}

TEST_F(socket_stream, tells_a_send_that_fails) {
    sockets.send_fails = true;
    EXPECT_FAILURE(stream->write(stream, "ab", 2),
                   "socket_send returned error in socket_write_buf: Bad error without sleep happened in "
                   "socket_send(): system error 32 (32)");
}

TEST_F(socket_stream, flushes_without_a_failure) {
    EXPECT_SUCCESS(stream->flush(stream));
    EXPECT_SUCCESS(stream->write(stream, "ab", 2));
    EXPECT_SUCCESS(stream->flush(stream));
}

// How often a flush was called, by a stream that passes it on.
static int flushes;

static const char *counted_flush(io *) {
    flushes++;
    return "refused";
}

TEST_F(socket_stream, flushes_itself_once_before_a_read_and_does_not_mind_a_failure) {
    flushes = 0;
    stream->flush = counted_flush;
    connection->to_receive = "abcd";
    EXPECT_EQ(read(1), "a");
    EXPECT_EQ(flushes, 0);
    EXPECT_SUCCESS(stream->write(stream, "x", 1));
    EXPECT_EQ(read(1), "b");
    EXPECT_EQ(flushes, 1);
    EXPECT_EQ(read(1), "c");
    EXPECT_EQ(flushes, 1);
}

TEST_F(socket_stream, stays_dirty_behind_a_read_that_fails) {
    flushes = 0;
    stream->flush = counted_flush;
    connection->peer_closed = true;
    EXPECT_SUCCESS(stream->write(stream, "x", 1));
    EXPECT_EQ(read(1), "Peer closed connection unexpectedly");
    EXPECT_EQ(read(1), "Peer closed connection unexpectedly");
    EXPECT_EQ(flushes, 2);
}

TEST_F(socket_stream, stays_clean_behind_a_send_that_fails) {
    sockets.send_fails = true;
    EXPECT_NE(noted_failure(stream->write(stream, "x", 1)), "(none)");
    flushes = 0;
    stream->flush = counted_flush;
    connection->to_receive = "a";
    EXPECT_EQ(read(1), "a");
    EXPECT_EQ(flushes, 0);
}

TEST_F(socket_stream, is_clean_behind_a_flush) {
    connection->to_receive = "a";
    EXPECT_SUCCESS(stream->write(stream, "x", 1));
    EXPECT_SUCCESS(stream->flush(stream));
    flushes = 0;
    stream->flush = counted_flush;
    EXPECT_EQ(read(1), "a");
    EXPECT_EQ(flushes, 0);
}

TEST_F(socket_stream, waits_for_as_many_seconds_as_it_is_told) {
    EXPECT_FALSE(stream->wait_readable(stream, 7));
    EXPECT_EQ(host.now, 1'000'000'007);
}

TEST_F(socket_stream, closes_the_socket_and_itself) {
    EXPECT_SUCCESS(stream->write(stream, "x", 1));
    stream->close(stream);
    stream = nullptr;
    EXPECT_EQ(connection->closes, 1);
    EXPECT_EQ(host.blocks, 0);
}

// Making one.

static std::string creation() {
    io not_cleared = {};
    io *stream = &not_cleared;
    std::string failure = noted_failure(socket_io_create(&stream, 0x0100007F, 3241, SOCKET_NONBLOCKING));
    EXPECT_EQ(stream, nullptr);
    return failure;
}

TEST(socket_io_create, passes_the_failure_of_the_connection_on) {
    test_host host;
    scripted_sockets sockets;
    sockets.refuse = true;
    EXPECT_EQ(creation(), "Error connecting: system error 111 (111)");
    EXPECT_EQ(sockets.open_connections(), 0);
    EXPECT_EQ(host.blocks, 0);
}

TEST(socket_io_create, needs_memory) {
    test_host host;
    scripted_sockets sockets;
    for (uint32_t allocation : {1U, 2U}) {
        host.fail_allocation = allocation;
        EXPECT_EQ(creation(), "Error allocating memory");
        EXPECT_EQ(host.blocks, 0);
    }
    EXPECT_TRUE(sockets.connections.empty());
}
