#include "server/socket_stream.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// Both ends of a TCP connection, the server's as a stream.
class tcp_pair : public testing::Test {
protected:
    tcp_pair() {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        int door = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(bind(door, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(door, 1), 0);
        getsockname(door, reinterpret_cast<sockaddr *>(&address), &size);
        peer = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        own = accept(door, nullptr, nullptr);
        close(door);
        stream = socket_stream_new(own, {.wait_ms = 10'000, .total_ms = 20'000, .bytes = 1'000'000});
    }
    ~tcp_pair() override {
        leave();
        if (stream != nullptr) stream->close(stream);
        close(own);
    }

    std::string read(size_t count) {
        std::string bytes(count, '\0');
        failure = stream->read(stream, bytes.data(), count);
        return failure == nullptr ? bytes : "";
    }
    void write(const std::string &bytes) { failure = stream->write(stream, bytes.data(), bytes.size()); }
    void flush() { failure = stream->flush(stream); }

    void peer_writes(const std::string &bytes) {
        EXPECT_EQ(send(peer, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    // Reads, and lets the server's host know at once.
    std::string peer_reads(size_t count) {
        int on = 1;
        std::string bytes(count, '\0');
        ssize_t got = recv(peer, bytes.data(), count, MSG_WAITALL);
        setsockopt(peer, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
        return bytes.substr(0, got > 0 ? static_cast<size_t>(got) : 0);
    }
    void leave() {
        if (peer >= 0) close(peer);
        peer = -1;
    }

    test_host host;
    int peer = -1;
    int own = -1;
    io *stream = nullptr;
    const char *failure = nullptr;
};

} // namespace

TEST_F(tcp_pair, reads_exactly_what_is_asked_for) {
    peer_writes("abcdef");
    EXPECT_EQ(read(2), "ab");
    EXPECT_EQ(read(4), "cdef");
}

TEST_F(tcp_pair, sends_with_the_next_flush_or_read) {
    write("abc");
    char byte;
    EXPECT_EQ(recv(peer, &byte, 1, MSG_DONTWAIT), -1);
    flush();
    EXPECT_EQ(peer_reads(3), "abc");
    write("def");
    peer_writes("x");
    EXPECT_EQ(read(1), "x");
    EXPECT_EQ(peer_reads(3), "def");
}

TEST_F(tcp_pair, sends_much_without_a_flush) {
    write(std::string(20'000, 'x'));
    EXPECT_EQ(peer_reads(20'000).size(), 20'000U);
}

TEST_F(tcp_pair, tells_an_end_in_order) {
    peer_writes("a");
    EXPECT_EQ(read(1), "a");
    write("answer");
    flush();
    peer_reads(6);
    leave();
    read(1);
    EXPECT_EQ(failure, STREAM_ENDED);
}

TEST_F(tcp_pair, tells_an_end_within_a_message) {
    peer_writes("a");
    leave();
    read(2);
    EXPECT_FAILURE(failure, "the agent closed the connection before its end");
}

TEST_F(tcp_pair, tells_an_end_with_the_answer_unread) {
    peer_writes("a");
    read(1);
    write("answer");
    flush();
    pollfd wanted = {.fd = peer, .events = POLLIN};
    poll(&wanted, 1, 10'000);
    leave();
    read(1);
    EXPECT_NE(failure, STREAM_ENDED);
    EXPECT_NE(failure, nullptr);
}

TEST_F(tcp_pair, tells_an_end_that_came_before_the_answer) {
    peer_writes("a");
    read(1);
    shutdown(peer, SHUT_WR);
    pollfd wanted = {.fd = own, .events = POLLRDHUP};
    poll(&wanted, 1, 10'000);
    write("answer");
    flush();
    EXPECT_EQ(peer_reads(6), "answer");
    read(1);
    EXPECT_FAILURE(failure, "the agent closed the connection before its end");
}

TEST_F(tcp_pair, waits_for_a_byte_no_longer_than_it_may) {
    socket_stream_limit(stream, {.wait_ms = 20, .total_ms = 10'000, .bytes = 100});
    read(1);
    EXPECT_FAILURE(failure, "nothing moved for 0.02 seconds");
}

TEST_F(tcp_pair, waits_for_all_no_longer_than_it_may) {
    socket_stream_limit(stream, {.wait_ms = 10'000, .total_ms = 20, .bytes = 100});
    read(1);
    EXPECT_FAILURE(failure, "the connection took longer than 0.02 seconds");
}

TEST_F(tcp_pair, waits_for_a_peer_that_does_not_read_no_longer_than_it_may) {
    socket_stream_limit(stream, {.wait_ms = 20, .total_ms = 10'000, .bytes = 100});
    for (int i = 0; i < 10'000 && failure == nullptr; i++)
        write(std::string(65536, 'x'));
    EXPECT_FAILURE(failure, "nothing moved for 0.02 seconds");
}

TEST_F(tcp_pair, takes_as_many_bytes_as_it_may) {
    socket_stream_limit(stream, {.wait_ms = 10'000, .total_ms = 10'000, .bytes = 5});
    peer_writes("abcde");
    EXPECT_EQ(read(5), "abcde");
    peer_writes("f");
    read(1);
    EXPECT_FAILURE(failure, "the agent sent too much");
}

// A socket that is closed with bytes unread is reset, and the peer may never see the last words.
TEST_F(tcp_pair, leaves_nothing_unread_behind_its_last_words) {
    peer_writes(std::string(20'000, 'x'));
    EXPECT_EQ(read(1), "x");
    write("last words");
    std::thread closing([this] { stream->close(stream); });
    EXPECT_EQ(peer_reads(10), "last words");
    EXPECT_EQ(peer_reads(1), "");
    leave();
    closing.join();
    stream = nullptr;
    char byte;
    EXPECT_EQ(recv(own, &byte, 1, MSG_DONTWAIT), 0);
}

TEST_F(tcp_pair, says_when_it_can_be_read) {
    EXPECT_FALSE(stream->wait_readable(stream, 0));
    peer_writes("ab");
    EXPECT_TRUE(stream->wait_readable(stream, 10));
    EXPECT_EQ(read(1), "a");
    EXPECT_TRUE(stream->wait_readable(stream, 0));
}
