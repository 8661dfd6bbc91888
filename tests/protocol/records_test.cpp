#include "protocol/records.h"

#include "crypto/vectors.h"
#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "protocol/ber.h"
#include "protocol/record_cases.h"
#include "protocol/wire.h"

#include <map>
#include <set>

static std::vector<record_case> cases_that(const std::function<bool(const record_case &)> &fit) {
    std::vector<record_case> found;
    for (const record_case &record : record_cases)
        if (fit(record)) found.push_back(record);
    return found;
}

class record_test : public testing::TestWithParam<record_case> {
protected:
    ~record_test() override { EXPECT_EQ(host.blocks, 0); }

    const record_case &record = GetParam();
    test_host host;

    // The record's name, a point, the field's name, and the words of the primitive.
    std::string failure_of(const field_case &field, const std::string &words) {
        return record.name + "." + field.name + ": " + words;
    }
    // Sound values, but for one field.
    field_words values_with(size_t place, const std::string &value) {
        field_words values = samples_of(record);
        values[place] = value;
        return values;
    }
};

static const auto name_of = [](const auto &info) { return info.param.name; };

// Readers.

class record_reader : public record_test {
protected:
    std::string read(const std::string &form, uint32_t tag = 0) {
        memory_io stream(form);
        std::string failure = noted_failure(record.read(stream, tag, &values));
        left = stream.left();
        return failure;
    }
    field_words values;
    std::string left;
};

TEST_P(record_reader, reads_each_field_in_order) {
    EXPECT_EQ(read(wire_of_record(record, samples_of(record))), "(none)");
    EXPECT_EQ(values, samples_of(record));
    EXPECT_EQ(left, "");
}

TEST_P(record_reader, takes_a_tag_that_its_caller_has_read) {
    size_t tag_size = bytes(record.identifier).size();
    EXPECT_EQ(read(wire_of_record(record, samples_of(record)).substr(tag_size), record.tag), "(none)");
    EXPECT_EQ(values, samples_of(record));
}

TEST_P(record_reader, passes_fillers_in_front_of_the_record_and_its_fields) {
    std::string fields;
    for (const std::string &value : samples_of(record))
        fields += bytes("19 19") + wire_of_words(value);
    std::string form = bytes("19") + wire_open(record.identifier, fields);
    if (!record.open) form += bytes("19") + WIRE_END;
    EXPECT_EQ(read(form), "(none)");
    EXPECT_EQ(values, samples_of(record));
}

TEST_P(record_reader, names_itself_when_the_tag_is_another) {
    EXPECT_EQ(read(bytes("7D 80")), "Wrong tag (235) encountered in read_" + function_of(record));
    EXPECT_EQ(read(bytes("80"), 72), "Wrong tag (72) encountered in read_" + function_of(record));
    EXPECT_EQ(read(bytes("00 00")), "Wrong tag (0) encountered in read_" + function_of(record));
}

TEST_P(record_reader, names_itself_when_the_length_is_definite) {
    std::string content =
        wire_of_record(record, samples_of(record)).substr(bytes(record.identifier).size() + 1);
    std::string length(1, static_cast<char>(content.size()));
    EXPECT_EQ(read(bytes(record.identifier) + length + content),
              "Definite length read in read_" + function_of(record));
    EXPECT_EQ(read(bytes(record.identifier + " 00")), "Definite length read in read_" + function_of(record));
}

TEST_P(record_reader, passes_a_bad_length_on) {
    EXPECT_EQ(read(bytes(record.identifier + " 85")), "data out of range in read_length");
}

TEST_P(record_reader, reads_each_field_at_its_limits) {
    for (size_t i = 0; i < record.fields.size(); i++) {
        const field_case &field = record.fields[i];
        std::vector<std::string> limits;
        if (field.type == field_type::integer)
            limits = {std::to_string(field.minimum), std::to_string(field.maximum)};
        if (field.type == field_type::boolean) limits = {"false", "true"};
        if (field.type == field_type::enumerated) limits = {"#0", "#4294967295"};
        if (field.type == field_type::text)
            limits = {"\"\"", "\"" + std::string(static_cast<size_t>(field.maximum), 'x') + "\""};
        if (field.type == field_type::number) limits = {"0x", "0x" + std::string(280, 'F')};
        for (const std::string &limit : limits) {
            EXPECT_EQ(read(wire_of_record(record, values_with(i, limit))), "(none)") << field.name;
            EXPECT_EQ(values, values_with(i, limit));
        }
    }
}

TEST_P(record_reader, refuses_each_field_beyond_its_limits) {
    for (size_t i = 0; i < record.fields.size(); i++) {
        const field_case &field = record.fields[i];
        std::vector<std::string> beyond;
        std::string words;
        if (field.type == field_type::integer) {
            beyond = {std::to_string(field.minimum - 1), std::to_string(field.maximum + 1)};
            words = "data out of range in read_signed_int";
        }
        if (field.type == field_type::text) {
            beyond = {"\"" + std::string(static_cast<size_t>(field.maximum) + 1, 'x') + "\""};
            words = "data out of range in read_string";
        }
        for (const std::string &value : beyond)
            EXPECT_EQ(read(wire_of_record(record, values_with(i, value))), failure_of(field, words)) << value;
    }
}

TEST_P(record_reader, refuses_each_field_of_another_type) {
    static const std::map<field_type, std::string> words = {
        {field_type::integer, "Wrong tag, expected BE_INTEGER"},
        {field_type::boolean, "Wrong tag, expected BE_BOOLEAN"},
        {field_type::enumerated, "Wrong tag, expected another type"},
        {field_type::text, "Wrong tag, expected BE_STRING"},
        {field_type::number, "Wrong tag, expected BE_INTEGER"},
    };
    std::string fields;
    for (const field_case &field : record.fields) {
        std::string head = wire_open(record.identifier, fields);
        EXPECT_EQ(read(head + wire_null()), failure_of(field, words.at(field.type)));
        EXPECT_EQ(read(head + WIRE_END), failure_of(field, words.at(field.type)));
        fields += wire_of_words(sample_of(field));
    }
}

TEST_P(record_reader, names_the_field_in_which_the_stream_ends) {
    std::string fields;
    for (const field_case &field : record.fields) {
        EXPECT_EQ(read(wire_open(record.identifier, fields)), failure_of(field, MEMORY_IO_EMPTY));
        fields += wire_of_words(sample_of(field));
        EXPECT_EQ(read(wire_open(record.identifier, fields.substr(0, fields.size() - 1))),
                  failure_of(field, MEMORY_IO_EMPTY));
    }
}

TEST_P(record_reader, keeps_nothing_when_memory_is_out) {
    for (uint32_t allocation = 1; allocation < 20; allocation++) {
        host.fail_allocation = allocation;
        std::string failure = read(wire_of_record(record, samples_of(record)));
        EXPECT_EQ(host.blocks, 0);
        if (failure == "(none)") break;
        EXPECT_TRUE(failure.ends_with(": Unable to allocate data in read_string") ||
                    failure.ends_with(": Out of memory in read_bignum"))
            << failure;
    }
    host.fail_allocation = 0;
}

// What a newer peer appends: passed over behind a closed record, the caller's next value behind an open one.
TEST_P(record_reader, ends_as_it_is_told) {
    std::string fields;
    for (const std::string &value : samples_of(record))
        fields += wire_of_words(value);
    std::string appended = wire_integer(5) + wire_list(wire_text("new")) + wire_value("7D", "new");
    EXPECT_EQ(read(wire_record(record.identifier, fields + appended) + bytes("55")), "(none)");
    EXPECT_EQ(values, samples_of(record));
    EXPECT_EQ(hex(left), hex(record.open ? appended + WIRE_END + bytes("55") : bytes("55")));
}

INSTANTIATE_TEST_SUITE_P(every, record_reader, testing::ValuesIn(cases_that([](const record_case &record) {
                             return record.read != nullptr;
                         })),
                         name_of);

class closed_reader : public record_reader {};

TEST_P(closed_reader, wants_a_sound_end) {
    std::string form = wire_of_record(record, samples_of(record));
    form.pop_back();
    EXPECT_EQ(read(form + bytes("01")), "List not terminated correctly in skip_to_eol");
    EXPECT_EQ(read(form), MEMORY_IO_EMPTY);
}

INSTANTIATE_TEST_SUITE_P(every, closed_reader, testing::ValuesIn(cases_that([](const record_case &record) {
                             return record.read != nullptr && !record.open;
                         })),
                         name_of);

// Writers.

class record_writer : public record_test {
protected:
    std::string write(const field_words &values) {
        memory_io stream;
        std::string failure = noted_failure(record.write(stream, values));
        written = stream.written;
        calls = stream.calls;
        return failure;
    }
    std::string written;
    uint32_t calls = 0;
};

TEST_P(record_writer, writes_each_field_in_order) {
    EXPECT_EQ(write(samples_of(record)), "(none)");
    EXPECT_EQ(hex(written), hex(wire_of_record(record, samples_of(record))));
}

TEST_P(record_writer, writes_each_field_at_its_limits) {
    for (size_t i = 0; i < record.fields.size(); i++) {
        const field_case &field = record.fields[i];
        std::vector<std::string> limits;
        if (field.type == field_type::integer)
            limits = {std::to_string(field.minimum), std::to_string(field.maximum)};
        if (field.type == field_type::boolean) limits = {"false", "true"};
        if (field.type == field_type::enumerated) limits = {"#0", "#4294967295"};
        if (field.type == field_type::text)
            limits = {"\"\"", "\"" + std::string(static_cast<size_t>(field.maximum), 'x') + "\""};
        if (field.type == field_type::number) limits = {"0x", "0x" + std::string(280, 'F')};
        for (const std::string &limit : limits) {
            EXPECT_EQ(write(values_with(i, limit)), "(none)") << field.name;
            EXPECT_EQ(hex(written), hex(wire_of_record(record, values_with(i, limit))));
        }
    }
}

TEST_P(record_writer, refuses_each_field_beyond_its_limits) {
    for (size_t i = 0; i < record.fields.size(); i++) {
        const field_case &field = record.fields[i];
        std::vector<std::string> beyond;
        std::string words;
        if (field.type == field_type::integer && field.minimum > INT32_MIN) {
            beyond = {std::to_string(field.minimum - 1), std::to_string(field.maximum + 1)};
            words = "data out of range in write_signed_int";
        }
        if (field.type == field_type::text) {
            beyond = {"\"" + std::string(static_cast<size_t>(field.maximum) + 1, 'x') + "\""};
            words = "data out of range in write_string";
        }
        if (field.type == field_type::number) {
            beyond = {"0x01" + std::string(280, '0')};
            words = "Buffer given to bn_get_data is too small";
        }
        for (const std::string &value : beyond)
            EXPECT_EQ(write(values_with(i, value)), failure_of(field, words));
    }
}

TEST_P(record_writer, passes_every_failure_of_the_stream_on) {
    write(samples_of(record));
    for (uint32_t call = 1, last = calls; call <= last; call++) {
        memory_io stream;
        stream.fail_call = call;
        std::string failure = noted_failure(record.write(stream, samples_of(record)));
        EXPECT_TRUE(failure.ends_with(MEMORY_IO_FAILED)) << failure;
        EXPECT_TRUE(failure == MEMORY_IO_FAILED || failure.starts_with(record.name + ".")) << failure;
    }
}

INSTANTIATE_TEST_SUITE_P(every, record_writer, testing::ValuesIn(cases_that([](const record_case &record) {
                             return record.write != nullptr;
                         })),
                         name_of);

// Vectors.

enum { NAME, VALUES, BYTES, MEANING, FIELDS };

static const record_case &case_named(const std::string &name) {
    for (const record_case &record : record_cases)
        if (record.name == name) return record;
    ADD_FAILURE() << "no record " << name;
    return record_cases[0];
}

// "{5 true}" as two words; there are no blanks within one.
static field_words split(const std::string &values) {
    field_words words;
    std::string rest = values.substr(1, values.size() - 2);
    while (!rest.empty()) {
        size_t end = std::min(rest.find(' '), rest.size());
        words.push_back(rest.substr(0, end));
        rest.erase(0, end + 1);
    }
    return words;
}

TEST(record_vectors, are_written_and_read_byte_for_byte) {
    for (const auto &row : read_vectors("records.txt", FIELDS)) {
        SCOPED_TRACE(row[NAME] + " (" + row[MEANING] + ")");
        test_host host;
        const record_case &record = case_named(row[NAME]);
        if (record.write) {
            memory_io stream;
            EXPECT_SUCCESS(record.write(stream, split(row[VALUES])));
            EXPECT_EQ(hex(stream.written), row[BYTES]);
        }
        if (record.read) {
            memory_io stream(bytes(row[BYTES]));
            field_words values;
            EXPECT_SUCCESS(record.read(stream, 0, &values));
            EXPECT_EQ(values, split(row[VALUES]));
            EXPECT_EQ(hex(stream.left()), "");
        }
    }
}

TEST(record_vectors, hold_every_record) {
    std::set<std::string> names;
    for (const auto &row : read_vectors("records.txt", FIELDS))
        names.insert(row[NAME]);
    for (const record_case &record : record_cases)
        EXPECT_TRUE(names.contains(record.name)) << record.name;
}

// The first message of every conversation: a node named a in a domain named b, without an id and keys.
TEST(client_wants_message, is_known_byte_for_byte) {
    test_host host;
    memory_io stream;
    client_wants wants = {.version = 514};
    client_private_key key = {.name = "a", .domain = "b"};
    EXPECT_SUCCESS(write_client_wants_incomplete(stream, &wants));
    EXPECT_SUCCESS(write_client_private_key(stream, &key));
    EXPECT_SUCCESS(write_eoc(stream));
    EXPECT_EQ(hex(stream.written),
              "60 80 02 02 02 02 A1 80 04 01 61 04 01 62 04 00 01 01 00 01 01 00 01 01 00 00 00 00 00");
}
