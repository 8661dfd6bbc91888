// All records as the two sides agree on them: a table that stands by itself beside the agent's own.
//
// Values are told in words: 5, true, #3 (enumerated), "a", 0x0102 (a big number's bytes).
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

struct io;

enum class field_type { integer, boolean, enumerated, text, number };

struct field_case {
    std::string name;
    field_type type;
    int64_t minimum = INT32_MIN; // of an integer
    int64_t maximum = INT32_MAX; // of an integer, or the longest text
};

using field_words = std::vector<std::string>;

struct record_case {
    std::string name;
    std::string identifier;
    uint32_t tag;
    bool open;
    std::vector<field_case> fields;
    // Absent where the agent never does it. What was read is freed; behind a failure too, so that a text that
    // was freed already shows.
    std::function<const char *(io *, const field_words &)> write;
    std::function<const char *(io *, uint32_t tag, field_words *)> read;
};

extern const std::vector<record_case> record_cases;

// The name of a case's function, as failure texts have it: "configure_resp_incomplete".
std::string function_of(const record_case &record);

// The wire's bytes of a value in words, and of a whole record, open ones without their end.
std::string wire_of_words(const std::string &words);
std::string wire_of_record(const record_case &record, const field_words &values);

// A value of the field that is sound.
std::string sample_of(const field_case &field);
field_words samples_of(const record_case &record);

void PrintTo(const record_case &record, std::ostream *out);
