// The readers of the primitives. What is read and written comes back as the same value.
#include "crypto/bignum.h"
#include "fuzz/fuzz_host.h"
#include "protocol/ber.h"

#include <cmath>
#include <cstring>

static void read_a_tag(memory_io &input) {
    uint32_t tag;
    if (read_tag(input, &tag) != nullptr || tag == BE_FILLER) return;
    memory_io copy;
    fuzz_require(write_tag(copy, tag) == nullptr, "a tag is written");
    // At most four groups of the number are written.
    uint32_t again;
    copy.input = copy.written;
    fuzz_require(read_tag(copy, &again) == nullptr && again == (tag & 0x7FFFFFFF), "a tag comes back");
}

static void read_a_length(memory_io &input) {
    uint32_t length;
    bool indefinite;
    if (read_length(input, &length, &indefinite) != nullptr || indefinite) return;
    memory_io copy;
    fuzz_require(write_length(copy, static_cast<int32_t>(length)) == nullptr, "a length is written");
    copy.input = copy.written;
    uint32_t again;
    fuzz_require(read_length(copy, &again, &indefinite) == nullptr && again == length && !indefinite,
                 "a length comes back");
}

static void read_an_int(memory_io &input) {
    int32_t value;
    if (read_signed_int(input, INT32_MIN, INT32_MAX, &value, 0) != nullptr) return;
    memory_io copy;
    fuzz_require(write_signed_int(copy, INT32_MIN, INT32_MAX, value) == nullptr, "an integer is written");
    copy.input = copy.written;
    int32_t again;
    fuzz_require(read_signed_int(copy, value, value, &again, 0) == nullptr, "an integer comes back");
}

static void read_a_limited_int(memory_io &input) {
    int32_t value;
    if (read_signed_int(input, -1, 86400, &value, 0) == nullptr)
        fuzz_require(value >= -1 && value <= 86400, "an integer lies within its limits");
}

static void read_an_enumerated(memory_io &input) {
    uint32_t value;
    if (read_enumerated(input, &value, BE_ENUMERATED, 0) != nullptr) return;
    memory_io copy;
    fuzz_require(write_enumerated(copy, value, BE_ENUMERATED) == nullptr, "an enumerated value is written");
    copy.input = copy.written;
    uint32_t again;
    fuzz_require(read_enumerated(copy, &again, BE_ENUMERATED, 0) == nullptr && again == value,
                 "an enumerated value comes back");
}

static void read_a_bool(memory_io &input) {
    int32_t value;
    if (read_bool(input, &value, 0) == nullptr) fuzz_require(value == 0 || value == 1, "a boolean is 0 or 1");
}

static void read_a_null(memory_io &input) {
    static_cast<void>(read_null(input, 0));
}

static void read_a_string(memory_io &input) {
    char *text = nullptr;
    if (read_string(input, 128, &text, 0) == nullptr)
        fuzz_require(strlen(text) <= 128, "a text keeps its limit");
    heap_free(text);
}

static void read_a_bignum(memory_io &input) {
    bignum *number = nullptr;
    if (read_bignum(input, &number, 0) != nullptr) return;
    bignum_guard owner(number);
    fuzz_require(number->length == 0 || number->limbs[number->length - 1] != 0, "a big number is normalized");
    memory_io copy;
    if (write_bignum(copy, number) != nullptr) return;
    copy.input = copy.written;
    bignum *again = nullptr;
    fuzz_require(read_bignum(copy, &again, 0) == nullptr && bn_equal(number, again),
                 "a big number comes back");
    bn_free(again);
}

static void read_a_real(memory_io &input) {
    double value;
    if (read_real(input, &value, 0) != nullptr) return;
    memory_io copy;
    fuzz_require(write_real(copy, value) == nullptr, "a real is written");
    copy.input = copy.written;
    double again;
    fuzz_require(read_real(copy, &again, 0) == nullptr, "a real comes back");
    fuzz_require(std::isnan(value) ? again == 0.0
                                   : std::signbit(value) == std::signbit(again) || value == 0.0,
                 "a real keeps its sign");
}

static void skip_a_value(memory_io &input) {
    static_cast<void>(skip_value(input, 0));
}

static void skip_a_list(memory_io &input) {
    static_cast<void>(skip_to_eol(input));
}

static void read_a_list_head(memory_io &input) {
    if (read_list_start(input, "no list", "definite") == nullptr)
        static_cast<void>(read_list_end(input, "no end"));
}

static void (*const readers[])(memory_io &input) = {
    read_a_tag,   read_a_length, read_an_int,      read_a_limited_int, read_an_enumerated,
    read_a_bool,  read_a_null,   read_a_string,    read_a_bignum,      read_a_real,
    skip_a_value, skip_a_list,   read_a_list_head,
};

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    auto *reader = readers[input.take_byte() % std::size(readers)];
    memory_io stream(input.take_rest());
    reader(stream);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
