#include "server/record_reader.h"

#include "fakes/test_host.h"
#include "server/byte_pipe.h"
#include "server/limits.h"
#include "server/records_read.h"
#include "server/scripted_agent.h"
#include "server/wire_text.h"

#include <gtest/gtest.h>

namespace {

// A reader over bytes that end where they end.
class reading : public testing::Test {
protected:
    ~reading() override { stream->close(stream); }
    void give(const std::string &bytes) {
        wires.to_server.write(bytes);
        wires.to_server.close();
    }
    std::string failure() { return noted_failure(reader.failure()); }

    test_host host;
    memory_connection wires;
    io *stream = memory_stream_new(&wires);
    memory_pool pool{1U << 20};
    memory_share share{&pool, 100'000};
    record_reader reader{stream, &share};
};

std::string repeated(const std::string &text, size_t count) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

// A record with an indefinite value that holds another, `depth` deep.
std::string nested(size_t depth) {
    return "\x60\x80" + repeated("\x30\x80", depth) + std::string(2 * (depth + 1), '\0');
}

} // namespace

TEST_F(reading, keeps_the_first_failure) {
    give("\x01\x01\x01");
    EXPECT_EQ(reader.integer(), 0);
    EXPECT_EQ(failure(), "Wrong tag, expected BE_INTEGER");
    EXPECT_EQ(reader.text(10), "");
    EXPECT_FALSE(reader.boolean());
    EXPECT_EQ(reader.next(), 0U);
    EXPECT_EQ(failure(), "Wrong tag, expected BE_INTEGER");
}

TEST_F(reading, refuses_another_record) {
    give(encode_record(wire::checkin_req, ""));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    EXPECT_EQ(failure(), "expected client_wants, got tag 83");
}

TEST_F(reading, refuses_a_record_of_definite_length) {
    give("\x60\x02\x05" + std::string(1, '\0'));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    EXPECT_EQ(failure(), "definite length in client_wants");
}

TEST_F(reading, passes_over_what_a_newer_agent_appends) {
    std::string unknown = encode_text("more") + encode_record(wire::sequence, encode_integer(5)) +
                          "\x19\x19" + encode_record("\x7F\x55", encode_record("\xA0", "") + encode_null());
    give(encode_record(wire::client_wants, encode_integer(7) + unknown) + encode_integer(8));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    EXPECT_EQ(reader.integer(), 7);
    reader.close();
    EXPECT_EQ(reader.integer(), 8);
    EXPECT_EQ(failure(), "(none)");
}

TEST_F(reading, follows_unknown_values_to_a_depth) {
    give(nested(MAX_SKIP_DEPTH) + encode_integer(8));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    reader.close();
    EXPECT_EQ(reader.integer(), 8);
    EXPECT_EQ(failure(), "(none)");
}

TEST_F(reading, refuses_unknown_values_beyond_that_depth) {
    give(nested(MAX_SKIP_DEPTH + 1));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    reader.close();
    EXPECT_EQ(failure(), "values are nested too deeply");
}

TEST_F(reading, survives_a_million_levels) {
    give("\x60\x80" + repeated("\x30\x80", 1'000'000));
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    reader.close();
    EXPECT_EQ(failure(), "values are nested too deeply");
}

TEST_F(reading, refuses_a_list_that_ends_with_a_length) {
    give("\x60\x80" + std::string(1, '\0') + "\x01\x01");
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    reader.close();
    EXPECT_EQ(failure(), "a length of 1 where at most 0 bytes may stand");
}

TEST_F(reading, refuses_an_unknown_list_that_ends_with_a_length) {
    give("\x60\x80\x30\x80" + std::string(1, '\0') + "\x80");
    reader.open(TAG_CLIENT_WANTS, "client_wants");
    reader.close();
    EXPECT_EQ(failure(), "a list is not ended properly");
}

TEST_F(reading, takes_a_text_up_to_its_limit) {
    give(encode_text("12345") + encode_text("123456"));
    EXPECT_EQ(reader.text(5), "12345");
    EXPECT_EQ(reader.text(5), "");
    EXPECT_EQ(failure(), "a length of 6 where at most 5 bytes may stand");
}

TEST_F(reading, does_not_believe_a_huge_length) {
    give("\x04\x84\xFF\xFF\xFF\xFF");
    EXPECT_EQ(reader.text(LOG_TEXT_LIMIT), "");
    EXPECT_EQ(failure(), "a length of 4294967295 where at most 65536 bytes may stand");
    EXPECT_EQ(pool.in_use(), 0U);
}

TEST_F(reading, refuses_a_text_with_a_zero_byte) {
    give(encode_text(std::string("a\0b", 3)));
    EXPECT_EQ(reader.text(10), "");
    EXPECT_EQ(failure(), "a text with a zero byte");
}

TEST_F(reading, refuses_another_value_than_a_text) {
    give(encode_integer(5));
    EXPECT_EQ(reader.text(10), "");
    EXPECT_EQ(failure(), "expected a text, got tag 16");
}

TEST_F(reading, counts_texts_against_the_memory) {
    give(encode_text(std::string(60'000, 'x')) + encode_text(std::string(40'001, 'x')));
    EXPECT_EQ(reader.text(LOG_TEXT_LIMIT).size(), 60'000U);
    EXPECT_EQ(reader.text(LOG_TEXT_LIMIT), "");
    EXPECT_EQ(failure(), "too much data in one message");
}

TEST_F(reading, takes_a_number_up_to_its_limit) {
    give(encode(wire::integer, std::string(NUMBER_LIMIT, '\x7F')) +
         encode(wire::integer, std::string(NUMBER_LIMIT + 1, '\x7F')));
    EXPECT_EQ(reader.number()->length, NUMBER_LIMIT / 4);
    EXPECT_EQ(reader.number(), nullptr);
    EXPECT_EQ(failure(), "a length of 141 where at most 140 bytes may stand");
}

TEST_F(reading, takes_an_empty_number_for_zero) {
    give(encode_integer(0));
    EXPECT_EQ(reader.number()->length, 0U);
}

TEST_F(reading, refuses_another_value_than_a_number) {
    give(encode_text("5"));
    EXPECT_EQ(reader.number(), nullptr);
    EXPECT_EQ(failure(), "expected a number, got tag 32");
}

TEST_F(reading, takes_a_real_or_nothing) {
    give(encode_real(2.5) + encode_null() + encode_integer(1));
    EXPECT_EQ(reader.real_or_null(), 2.5);
    EXPECT_EQ(reader.real_or_null(), std::nullopt);
    EXPECT_EQ(failure(), "(none)");
    reader.real_or_null();
    EXPECT_EQ(failure(), "Wrong tag, expected BE_REAL");
}

// A configure_req whose tree is so many groups deep.
std::string deep_request(size_t depth) {
    std::string tree;
    while (depth-- > 0)
        tree = encode_record(wire::sequence,
                             encode_text("g") + encode_text("g") + encode_record(wire::sequence, "") +
                                 encode_record(wire::sequence, tree) + encode_text("") + encode_bool(false));
    return encode_record(wire::configure_req,
                         repeated(encode_integer(1), 5) + encode_record(wire::sequence, "") +
                             encode_record(wire::sequence, tree) + encode_record(wire::sequence, ""));
}

TEST_F(reading, takes_trees_up_to_a_depth) {
    give(deep_request(MAX_GROUP_DEPTH));
    configure_req request = read_configure_req(reader, 0);
    EXPECT_EQ(failure(), "(none)");
    size_t depth = 0;
    for (const auto *groups = &request.tree; !groups->empty(); groups = &groups->front().groups)
        depth++;
    EXPECT_EQ(depth, MAX_GROUP_DEPTH);
}

TEST_F(reading, refuses_trees_beyond_a_depth) {
    give(deep_request(MAX_GROUP_DEPTH + 1));
    read_configure_req(reader, 0);
    EXPECT_EQ(failure(), "groups are nested too deeply");
}

// A configure_req with so many groups of so many devices, by names that are as long as those of counters.
std::string wide_request(size_t groups, size_t devices) {
    std::string device = encode_device("IO Data Operations/sec", 7, "/s", NO_HINT);
    std::string group = encode_group("a long program#1000", repeated(device, devices));
    return encode_record(wire::configure_req, repeated(encode_integer(1), 5) +
                                                  encode_record(wire::sequence, "") +
                                                  encode_record(wire::sequence, repeated(group, groups)) +
                                                  encode_record(wire::sequence, ""));
}

TEST_F(reading, takes_the_tree_of_a_host_with_ten_thousand_processes) {
    memory_pool whole(TOTAL_MEMORY);
    memory_share own(&whole, CONNECTION_MEMORY);
    record_reader patient(stream, &own);
    give(wide_request(10'000, 25));
    EXPECT_EQ(read_configure_req(patient, 0).tree.size(), 10'000U);
    EXPECT_EQ(noted_failure(patient.failure()), "(none)");
}

TEST_F(reading, refuses_trees_of_too_many_devices) {
    memory_pool whole(TOTAL_MEMORY);
    memory_share own(&whole, TOTAL_MEMORY);
    record_reader patient(stream, &own);
    give(wide_request(1, MAX_DEVICES));
    read_configure_req(patient, 0);
    EXPECT_EQ(noted_failure(patient.failure()), "a tree of too many devices");
}

TEST_F(reading, refuses_lists_beyond_a_length) {
    std::string build = repeated(encode_integer(1), 5);
    std::string line = encode_record(wire::sequence, encode_text("") + encode_text(""));
    memory_share large(&pool, 1U << 20);
    record_reader patient(stream, &large);
    give(encode_record(wire::configure_req,
                       build + encode_record(wire::sequence, repeated(line, MAX_HOST_LINES + 1))));
    read_configure_req(patient, 0);
    EXPECT_EQ(noted_failure(patient.failure()), "a list of more than 2000 elements");
}

TEST_F(reading, ends_a_list_that_takes_too_much) {
    std::string empty_result =
        encode_record(wire::sequence, encode_integer(0) + encode_text("") + encode_enumerated(0) +
                                          encode_record(wire::sequence, encode_text("a") + encode_text("b")) +
                                          encode_null());
    give("\x6A\x80\x30\x80" + repeated(empty_result, 5000));
    read_checkin_req(reader, 0);
    EXPECT_EQ(failure(), "too much data in one message");
}

TEST_F(reading, refuses_results_without_sense) {
    struct {
        std::string status, path, value, failure;
    } const rows[] = {
        {encode_enumerated(4), encode_text("a") + encode_text("b"), encode_null(), "a result of status 4"},
        {encode_enumerated(0), encode_text("a"), encode_null(), "a result without a path"},
        {encode_enumerated(0), repeated(encode_text("a"), 34), encode_null(),
         "a list of more than 33 elements"},
        {encode_enumerated(0), encode_text("a") + encode_text("b"), encode_bool(true),
         "a result's value has tag 8"},
    };
    for (const auto &row : rows) {
        memory_connection line;
        io *bytes = memory_stream_new(&line);
        record_reader another(bytes, &share);
        line.to_server.write(encode_record(
            wire::checkin_req,
            encode_record(wire::sequence,
                          encode_record(wire::sequence, encode_integer(1) + encode_text("") + row.status +
                                                            encode_record(wire::sequence, row.path) +
                                                            row.value))));
        line.to_server.close();
        read_checkin_req(another, 0);
        EXPECT_EQ(noted_failure(another.failure()), row.failure);
        bytes->close(bytes);
    }
}
