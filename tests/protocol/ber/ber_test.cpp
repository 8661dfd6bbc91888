#include "protocol/ber.h"

#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "platform/heap.h"

#include <gtest/gtest.h>

static constexpr const char *BAD_LENGTH = "data out of range in read_length";

class ber_stream : public testing::Test {
protected:
    ~ber_stream() override { EXPECT_EQ(host.blocks, 0); }

    test_host host;
};

using tag_reader = ber_stream;
using length_reader = ber_stream;
using value_skipper = ber_stream;
using list_skipper = ber_stream;
using list_marks = ber_stream;

// Tags.

TEST_F(tag_reader, runs_through_fillers_without_a_limit) {
    memory_io stream(std::string(100'000, '\x19') + bytes("02 01 05"));
    int32_t value = 0;
    EXPECT_SUCCESS(read_signed_int(stream, 0, 10, &value, 0));
    EXPECT_EQ(value, 5);
}

TEST_F(tag_reader, leaves_fillers_alone_within_a_value) {
    memory_io stream(bytes("02 01 19 04 19") + std::string(0x19, '\x19'));
    int32_t value = 0;
    EXPECT_SUCCESS(read_signed_int(stream, 0, 100, &value, 0));
    EXPECT_EQ(value, 0x19);
    char *text = nullptr;
    EXPECT_SUCCESS(read_string(stream, 0x19, &text, 0));
    text_guard owner(text);
    EXPECT_EQ(std::string(text), std::string(0x19, '\x19'));
}

TEST_F(tag_reader, sees_no_filler_in_the_second_byte) {
    memory_io stream(bytes("7F 19 02"));
    uint32_t tag = 0;
    EXPECT_SUCCESS(read_tag(stream, &tag));
    EXPECT_EQ(tag, 25U << 3 | 3U);
    EXPECT_EQ(hex(stream.left()), "02");
}

TEST_F(tag_reader, clears_the_tag_when_the_stream_ends) {
    memory_io stream(bytes("19 19"));
    uint32_t tag = 77;
    EXPECT_FAILURE(read_tag(stream, &tag), MEMORY_IO_EMPTY);
    EXPECT_EQ(tag, 0U);
}

// Lengths.

TEST_F(length_reader, tells_the_indefinite_form) {
    memory_io stream(bytes("80"));
    uint32_t length = 7;
    bool indefinite = false;
    EXPECT_SUCCESS(read_length(stream, &length, &indefinite));
    EXPECT_TRUE(indefinite);
    EXPECT_EQ(length, 0U);
}

TEST_F(length_reader, clears_the_indefinite_flag) {
    for (const char *form : {"00", "7F", "81 80", "84 00 00 00 00"}) {
        memory_io stream(bytes(form));
        uint32_t length = 0;
        bool indefinite = true;
        EXPECT_SUCCESS(read_length(stream, &length, &indefinite));
        EXPECT_FALSE(indefinite) << form;
    }
}

TEST_F(length_reader, refuses_more_than_four_length_bytes) {
    for (const char *form : {"85 00 00 00 00 01", "FF"}) {
        memory_io stream(bytes(form));
        uint32_t length;
        bool indefinite;
        EXPECT_FAILURE(read_length(stream, &length, &indefinite), BAD_LENGTH);
    }
}

TEST_F(length_reader, is_refused_in_every_reader) {
    int32_t number;
    uint32_t unsigned_number;
    double real;
    char *text;
    bignum *big;
    EXPECT_FAILURE(read_null(memory_io(bytes("05 85")), 0), BAD_LENGTH);
    EXPECT_FAILURE(read_bool(memory_io(bytes("01 85")), &number, 0), BAD_LENGTH);
    EXPECT_FAILURE(read_signed_int(memory_io(bytes("02 85")), 0, 1, &number, 0), BAD_LENGTH);
    EXPECT_FAILURE(read_bignum(memory_io(bytes("02 85")), &big, 0), BAD_LENGTH);
    EXPECT_FAILURE(read_string(memory_io(bytes("04 85")), 10, &text, 0), BAD_LENGTH);
    EXPECT_FAILURE(read_real(memory_io(bytes("09 85")), &real, 0), BAD_LENGTH);
    EXPECT_FAILURE(read_enumerated(memory_io(bytes("0A 85")), &unsigned_number, BE_ENUMERATED, 0),
                   BAD_LENGTH);
    EXPECT_FAILURE(skip_value(memory_io(bytes("02 85")), 0), BAD_LENGTH);
    EXPECT_FAILURE(skip_value(memory_io(bytes("30 80 02 85")), 0), BAD_LENGTH);
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("02 85"))), BAD_LENGTH);
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("00 85"))), BAD_LENGTH);
}

// Skipping.

static std::string left_by_skip(const std::string &hex_form, uint32_t tag = 0) {
    memory_io stream(bytes(hex_form));
    EXPECT_SUCCESS(skip_value(stream, tag));
    return hex(stream.left());
}

TEST_F(value_skipper, takes_one_primitive_and_no_more) {
    EXPECT_EQ(left_by_skip("02 01 05 55"), "55");
    EXPECT_EQ(left_by_skip("05 00 55"), "55");
    EXPECT_EQ(left_by_skip("7F 21 01 00 55"), "55");
}

TEST_F(value_skipper, takes_a_tag_that_its_caller_has_read) {
    EXPECT_EQ(left_by_skip("01 05 55", BE_INTEGER), "55");
}

TEST_F(value_skipper, takes_contents_of_every_length_around_its_scratch) {
    for (size_t length : {0, 1, 126, 127, 128, 129, 255, 256, 257, 1000}) {
        std::string form = bytes("04 82");
        form.push_back(static_cast<char>(length >> 8));
        form.push_back(static_cast<char>(length & 255));
        memory_io stream(form + std::string(length, 'x') + bytes("55"));
        EXPECT_SUCCESS(skip_value(stream, 0));
        EXPECT_EQ(hex(stream.left()), "55") << length;
    }
}

TEST_F(value_skipper, takes_lists_with_all_that_is_in_them) {
    EXPECT_EQ(left_by_skip("30 80 00 00 55"), "55");
    EXPECT_EQ(left_by_skip("30 80 02 01 05 30 80 04 02 00 00 00 00 30 04 00 00 00 00 00 00 55"), "55");
    EXPECT_EQ(left_by_skip("30 80 19 19 02 01 05 19 00 00 55"), "55");
}

TEST_F(value_skipper, takes_a_definite_list_by_its_length) {
    EXPECT_EQ(left_by_skip("30 03 02 01 05 55"), "55");
}

TEST_F(value_skipper, refuses_the_end_of_a_list) {
    EXPECT_FAILURE(skip_value(memory_io(bytes("00 00")), 0), "skip_value encountered end of list");
}

TEST_F(value_skipper, wants_a_zero_length_behind_the_end_mark) {
    const char *text = "List not terminated correctly in read_devnode_list";
    EXPECT_FAILURE(skip_value(memory_io(bytes("30 80 00 01")), 0), text);
    EXPECT_FAILURE(skip_value(memory_io(bytes("30 80 00 80")), 0), text);
    EXPECT_FAILURE(skip_value(memory_io(bytes("30 80 30 80 00 01")), 0), text);
}

TEST_F(value_skipper, survives_any_depth) {
    constexpr size_t depth = 100'000;
    std::string form;
    for (size_t i = 0; i < depth; i++)
        form += "\x30\x80";
    memory_io stream(form + std::string(2 * depth, '\0') + "\x55");
    EXPECT_SUCCESS(skip_value(stream, 0));
    EXPECT_EQ(hex(stream.left()), "55");
}

TEST_F(value_skipper, passes_the_failure_of_the_stream_on) {
    for (const char *form : {"", "02", "02 05 01", "30 80", "30 80 02", "30 80 02 01", "30 80 00"})
        EXPECT_FAILURE(skip_value(memory_io(bytes(form)), 0), MEMORY_IO_EMPTY) << form;
}

TEST_F(list_skipper, takes_everything_up_to_the_end_of_the_list) {
    for (const char *form : {"00 00 55", "19 19 00 00 55", "02 01 05 30 80 00 00 00 00 55"}) {
        memory_io stream(bytes(form));
        EXPECT_SUCCESS(skip_to_eol(stream));
        EXPECT_EQ(hex(stream.left()), "55") << form;
    }
}

TEST_F(list_skipper, wants_a_zero_length_behind_the_end_mark) {
    const char *text = "List not terminated correctly in skip_to_eol";
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("00 01 00"))), text);
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("02 01 05 00 80"))), text);
}

TEST_F(list_skipper, passes_failures_on) {
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes(""))), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("02 01"))), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(skip_to_eol(memory_io(bytes("30 80 00 01"))),
                   "List not terminated correctly in read_devnode_list");
}

// Lists.

TEST_F(list_marks, starts_with_a_sequence_of_indefinite_length) {
    memory_io stream(bytes("19 30 80 55"));
    EXPECT_SUCCESS(read_list_start(stream, "wrong tag", "not indefinite"));
    EXPECT_EQ(hex(stream.left()), "55");
}

TEST_F(list_marks, starts_with_nothing_else) {
    EXPECT_FAILURE(read_list_start(memory_io(bytes("60 80")), "wrong tag", "not indefinite"), "wrong tag");
    EXPECT_FAILURE(read_list_start(memory_io(bytes("00 00")), "wrong tag", "not indefinite"), "wrong tag");
    EXPECT_FAILURE(read_list_start(memory_io(bytes("30 00")), "wrong tag", "not indefinite"),
                   "not indefinite");
    EXPECT_FAILURE(read_list_start(memory_io(bytes("30 85")), "wrong tag", "not indefinite"), BAD_LENGTH);
    EXPECT_FAILURE(read_list_start(memory_io(bytes("")), "wrong tag", "not indefinite"), MEMORY_IO_EMPTY);
}

TEST_F(list_marks, ends_with_a_definite_zero) {
    EXPECT_SUCCESS(read_list_end(memory_io(bytes("00")), "no end"));
    EXPECT_SUCCESS(read_list_end(memory_io(bytes("81 00")), "no end"));
    EXPECT_FAILURE(read_list_end(memory_io(bytes("01")), "no end"), "no end");
    EXPECT_FAILURE(read_list_end(memory_io(bytes("80")), "no end"), "no end");
    EXPECT_FAILURE(read_list_end(memory_io(bytes("85")), "no end"), BAD_LENGTH);
}

TEST_F(list_marks, are_written_as_they_stand) {
    memory_io stream;
    EXPECT_SUCCESS(write_seq_begin(stream));
    EXPECT_SUCCESS(write_indefinite(stream));
    EXPECT_SUCCESS(write_eoc(stream));
    EXPECT_EQ(hex(stream.written), "30 80 80 00 00");
}
