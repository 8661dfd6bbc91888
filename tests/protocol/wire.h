// The wire as another developer would have written it, for the peer's side of tests: values are made and
// taken apart by their identifier bytes, without the agent's codec, so that an error there shows.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// One value with a definite length.
std::string wire_value(const std::string &identifier, const std::string &content);

std::string wire_integer(int64_t value);
std::string wire_enumerated(uint32_t value);
std::string wire_bool(bool value);
std::string wire_null();
std::string wire_text(const std::string &text);
std::string wire_real(const std::string &decimal);
std::string wire_number(const std::string &magnitude); // big-endian bytes

// A value of indefinite length, by its identifier in hexadecimal; open: without its end.
std::string wire_record(const std::string &identifier, const std::string &fields);
std::string wire_open(const std::string &identifier, const std::string &fields);
std::string wire_list(const std::string &elements);
inline const std::string WIRE_END(2, '\0');

// One value, taken apart.
struct wire_node {
    std::string identifier; // in hexadecimal: "02", "7F 20"
    std::string content;    // of a primitive
    std::vector<wire_node> parts;

    bool is_record() const;
    int64_t integer() const;
    bool truth() const;
    const std::string &text() const { return content; }
    // "{…}" for lists, "60{…}" for records, 5 for an integer, #3 for an enumerated value, "a" for a text,
    // true, false, null, real 1.5, all parts in a row with blanks between.
    std::string words() const;
};

// Anything that is not in its shortest form, a record of definite length, a filler within a message.
struct wire_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Takes one value off the front of `bytes`. Throws wire_error.
wire_node take_wire_node(std::string *bytes);

// The words of all values in `bytes`, blanks between them.
std::string wire_words(const std::string &bytes);
