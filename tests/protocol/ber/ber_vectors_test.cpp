#include "crypto/vectors.h"
#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "protocol/ber/primitives.h"

enum { KIND, VALUE, BYTES, MEANING, FIELDS };

static std::string told(const std::vector<std::string> &row) {
    return row[KIND] + " " + row[VALUE] + " (" + row[MEANING] + ")";
}

// Reads the row's bytes, with another byte behind them, which has to stay.
static void expect_read(const std::vector<std::string> &row) {
    SCOPED_TRACE(told(row));
    test_host host;
    memory_io stream(bytes(row[BYTES] + " 55"));
    std::string value;
    EXPECT_SUCCESS(read_named(stream, row[KIND], &value));
    EXPECT_EQ(value, row[VALUE]);
    EXPECT_EQ(hex(stream.left()), "55");
    EXPECT_EQ(host.blocks, 0);
}

TEST(ber_vectors, are_written_byte_for_byte) {
    for (const auto &row : read_vectors("ber.txt", FIELDS)) {
        SCOPED_TRACE(told(row));
        test_host host;
        memory_io stream;
        EXPECT_SUCCESS(write_named(stream, row[KIND], row[VALUE]));
        EXPECT_EQ(hex(stream.written), row[BYTES]);
        EXPECT_EQ(host.blocks, 0);
    }
}

TEST(ber_vectors, are_read_back_to_the_last_byte) {
    for (const auto &row : read_vectors("ber.txt", FIELDS))
        expect_read(row);
}

TEST(ber_vectors, of_other_forms_are_read_as_well) {
    for (const auto &row : read_vectors("ber_read.txt", FIELDS))
        expect_read(row);
}

// A connection that ends within a value: every reader passes the stream's failure on and keeps nothing.
TEST(ber_vectors, cut_anywhere_give_the_failure_of_the_stream) {
    for (const auto &row : read_vectors("ber.txt", FIELDS)) {
        for (size_t length = 0; length < bytes(row[BYTES]).size(); length++) {
            SCOPED_TRACE(told(row) + " cut to " + std::to_string(length));
            test_host host;
            memory_io stream(bytes(row[BYTES]).substr(0, length));
            std::string value;
            EXPECT_FAILURE(read_named(stream, row[KIND], &value), MEMORY_IO_EMPTY);
            EXPECT_EQ(host.blocks, 0);
        }
    }
}

TEST(ber_vectors, on_a_failing_stream_give_its_failure_at_every_write) {
    for (const auto &row : read_vectors("ber.txt", FIELDS)) {
        uint32_t calls = 1;
        for (uint32_t call = 1; call <= calls; call++) {
            SCOPED_TRACE(told(row) + ", write " + std::to_string(call));
            test_host host;
            memory_io whole;
            EXPECT_SUCCESS(write_named(whole, row[KIND], row[VALUE]));
            calls = whole.calls;
            memory_io stream;
            stream.fail_call = call;
            EXPECT_FAILURE(write_named(stream, row[KIND], row[VALUE]), MEMORY_IO_FAILED);
            EXPECT_EQ(host.blocks, 0);
        }
    }
}
