#include "crypto/cipher_stream.h"

#include "crypto/aes.h"
#include "crypto/vectors.h"
#include "fakes/test_host.h"
#include "platform/heap.h"

#include <cstring>

static constexpr const char *KEY = "000102030405060708090a0b0c0d0e0f";

// The stream below: what was written to it, what can be read from it, and each call in order.
struct lower_stream {
    io stream = {
        .read = read, .write = write, .flush = flush, .wait_readable = wait_readable, .close = close};
    std::string written, readable;
    std::vector<std::string> calls;
    const char *failure = nullptr;

    lower_stream() { stream.state = this; }
    static lower_stream *of(io *stream) { return static_cast<lower_stream *>(stream->state); }

    const char *note(const std::string &call) {
        calls.push_back(call);
        return failure;
    }
    static const char *read(io *stream, void *buffer, size_t count) {
        lower_stream *self = of(stream);
        if (auto *failed = self->note("read " + std::to_string(count))) return failed;
        EXPECT_GE(self->readable.size(), count);
        memcpy(buffer, self->readable.data(), count);
        self->readable.erase(0, count);
        return nullptr;
    }
    static const char *write(io *stream, const void *buffer, size_t count) {
        of(stream)->written.append(static_cast<const char *>(buffer), count);
        return of(stream)->note("write " + std::to_string(count));
    }
    static const char *flush(io *stream) { return of(stream)->note("flush"); }
    static bool wait_readable(io *stream, int32_t seconds) {
        of(stream)->note("wait " + std::to_string(seconds));
        return seconds == 7;
    }
    static void close(io *stream) { of(stream)->note("close " + std::to_string(the_host->blocks)); }
};

using call_list = std::vector<std::string>;

static std::string crypt(int direction, std::string text) {
    aes_key key;
    aes_cipher cipher;
    EXPECT_EQ(makeKey(&key, direction, 128, KEY), AES_TRUE);
    cipherInit(&cipher, AES_MODE_ECB, nullptr);
    int bits = static_cast<int>(text.size() * 8);
    EXPECT_EQ((direction == AES_ENCRYPT ? blockEncrypt : blockDecrypt)(&cipher, &key, text.data(), bits,
                                                                       text.data()),
              bits);
    return text;
}

class cipher_stream : public testing::Test {
protected:
    ~cipher_stream() override { stream->close(stream); }

    void write(const std::string &text) { EXPECT_SUCCESS(stream->write(stream, text.data(), text.size())); }
    std::string read(size_t count) {
        std::string text(count, '?');
        EXPECT_SUCCESS(stream->read(stream, text.data(), count));
        return text;
    }

    test_host host;
    lower_stream below;
    io *stream = cipher_stream_new(&below.stream, KEY);
};

TEST_F(cipher_stream, sends_nothing_at_an_empty_flush_but_flushes_below) {
    EXPECT_SUCCESS(stream->flush(stream));
    EXPECT_EQ(below.calls, call_list{"flush"});
}

TEST_F(cipher_stream, sends_a_whole_block_at_once) {
    write("0123456789abcdef");
    EXPECT_EQ(below.calls, call_list{"write 16"});
    EXPECT_EQ(crypt(AES_DECRYPT, below.written), "0123456789abcdef");
}

TEST_F(cipher_stream, keeps_15_bytes_until_a_flush_adds_one_filler) {
    write("0123456789abcde");
    EXPECT_EQ(below.calls, call_list{});
    EXPECT_SUCCESS(stream->flush(stream));
    EXPECT_EQ(below.calls, (call_list{"write 16", "flush"}));
    EXPECT_EQ(crypt(AES_DECRYPT, below.written), "0123456789abcde\x19");
}

TEST_F(cipher_stream, fills_a_block_with_up_to_15_fillers) {
    write("0");
    EXPECT_SUCCESS(stream->flush(stream));
    EXPECT_EQ(crypt(AES_DECRYPT, below.written), "0" + std::string(15, '\x19'));
}

TEST_F(cipher_stream, starts_a_new_block_behind_a_flush) {
    write("0123456789abcdefghi");
    EXPECT_SUCCESS(stream->flush(stream));
    EXPECT_SUCCESS(stream->flush(stream));
    write("0123456789abcdef");
    EXPECT_EQ(below.calls, (call_list{"write 16", "write 16", "flush", "flush", "write 16"}));
    EXPECT_EQ(crypt(AES_DECRYPT, below.written),
              "0123456789abcdefghi" + std::string(13, '\x19') + "0123456789abcdef");
}

TEST_F(cipher_stream, gathers_writes_of_any_size_into_blocks) {
    std::string text;
    for (size_t size = 0; size < 40; size++) {
        std::string part(size, static_cast<char>('0' + size));
        write(part);
        text += part;
        ASSERT_EQ(below.written.size(), text.size() / 16 * 16);
    }
    EXPECT_EQ(crypt(AES_DECRYPT, below.written), text.substr(0, text.size() / 16 * 16));
}

TEST_F(cipher_stream, reads_16_bytes_below_for_the_first_of_16) {
    below.readable = crypt(AES_ENCRYPT, "0123456789abcdefABCDEFGHIJKLMNOP");
    EXPECT_EQ(read(1), "0");
    EXPECT_EQ(below.calls, call_list{"read 16"});
    for (int i = 1; i < 16; i++)
        EXPECT_EQ(read(1), std::string(1, "0123456789abcdef"[i]));
    EXPECT_EQ(below.calls, call_list{"read 16"});
    EXPECT_EQ(read(1), "A");
    EXPECT_EQ(below.calls, (call_list{"read 16", "read 16"}));
}

TEST_F(cipher_stream, reads_across_blocks) {
    std::string text = "0123456789abcdefABCDEFGHIJKLMNOP................";
    below.readable = crypt(AES_ENCRYPT, text);
    EXPECT_EQ(read(5), text.substr(0, 5));
    EXPECT_EQ(read(30), text.substr(5, 30));
    EXPECT_EQ(read(13), text.substr(35));
    EXPECT_EQ(below.calls, (call_list{"read 16", "read 16", "read 16"}));
}

TEST_F(cipher_stream, reads_nothing_below_for_nothing) {
    read(0);
    EXPECT_EQ(below.calls, call_list{});
}

TEST_F(cipher_stream, does_not_flush_before_a_read) {
    write("pending");
    below.readable = crypt(AES_ENCRYPT, "0123456789abcdef");
    read(16);
    EXPECT_EQ(below.calls, call_list{"read 16"});
}

TEST_F(cipher_stream, keeps_both_directions_apart) {
    write("abc");
    below.readable = crypt(AES_ENCRYPT, "0123456789abcdef");
    EXPECT_EQ(read(3), "012");
    write("defghijklmnop");
    EXPECT_EQ(read(13), "3456789abcdef");
    EXPECT_EQ(crypt(AES_DECRYPT, below.written), "abcdefghijklmnop");
}

TEST_F(cipher_stream, passes_a_wait_on) {
    EXPECT_TRUE(stream->wait_readable(stream, 7));
    EXPECT_FALSE(stream->wait_readable(stream, 8));
    EXPECT_EQ(below.calls, (call_list{"wait 7", "wait 8"}));
}

TEST_F(cipher_stream, returns_the_failure_of_a_read_below) {
    below.failure = "below failed";
    char byte;
    EXPECT_FAILURE(stream->read(stream, &byte, 1), "below failed");
}

TEST_F(cipher_stream, returns_the_failure_of_a_write_below) {
    below.failure = "below failed";
    EXPECT_FAILURE(stream->write(stream, "0123456789abcdef", 16), "below failed");
}

TEST_F(cipher_stream, does_not_flush_below_behind_a_failed_write) {
    write("abc");
    below.failure = "below failed";
    EXPECT_FAILURE(stream->flush(stream), "below failed");
    EXPECT_EQ(below.calls, call_list{"write 16"});
}

TEST_F(cipher_stream, returns_the_failure_of_a_flush_below) {
    below.failure = "below failed";
    EXPECT_FAILURE(stream->flush(stream), "below failed");
    EXPECT_EQ(below.calls, call_list{"flush"});
}

TEST(cipher_stream_new, needs_two_allocations_and_leaves_the_stream_below) {
    test_host host;
    lower_stream below;
    for (uint32_t n : {1U, 2U}) {
        host.fail_allocation = n;
        EXPECT_EQ(cipher_stream_new(&below.stream, KEY), nullptr);
        EXPECT_EQ(host.blocks, 0);
    }
    EXPECT_EQ(below.calls, call_list{});
}

TEST(cipher_stream_new, lets_blocks_pass_as_they_are_where_the_key_is_no_key) {
    test_host host;
    lower_stream below;
    io *stream = cipher_stream_new(&below.stream, "000102030405060708090a0b0c0d0e0x");
    EXPECT_SUCCESS(stream->write(stream, "0123456789abcdef", 16));
    EXPECT_EQ(below.written, "0123456789abcdef");
    below.readable = "ABCDEFGHIJKLMNOP";
    std::string text(16, '?');
    EXPECT_SUCCESS(stream->read(stream, text.data(), 16));
    EXPECT_EQ(text, "ABCDEFGHIJKLMNOP");
    stream->close(stream);
}

// The state is gone before the stream below closes, the stream itself only then.
TEST(cipher_stream_close, loses_what_was_not_flushed_and_frees_all) {
    test_host host;
    lower_stream below;
    io *stream = cipher_stream_new(&below.stream, KEY);
    EXPECT_EQ(host.blocks, 2);
    EXPECT_SUCCESS(stream->write(stream, "abc", 3));
    stream->close(stream);
    EXPECT_EQ(below.calls, call_list{"close 1"});
    EXPECT_EQ(host.blocks, 0);
}
