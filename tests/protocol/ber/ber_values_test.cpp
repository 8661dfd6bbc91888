#include "crypto/bignum.h"
#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "protocol/ber.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

static constexpr const char *BAD_INT = "data out of range in read_signed_int";
static constexpr const char *BAD_BOOL = "data out of range in read_bool";
static constexpr const char *BAD_STRING = "data out of range in read_string";
static constexpr const char *BAD_ENUMERATED = "data out of range in read_enumerated";
static constexpr const char *BAD_REAL = "data out of range in read_bool"; // the boolean's words, on purpose

class ber_values : public testing::Test {
protected:
    ~ber_values() override { EXPECT_EQ(host.blocks, 0); }

    test_host host;
};

using signed_ints = ber_values;
using booleans = ber_values;
using nulls = ber_values;
using strings = ber_values;
using enumerated_values = ber_values;
using bignums = ber_values;
using reals = ber_values;

// INTEGER.

static const char *read_int(const std::string &form, int32_t minimum, int32_t maximum, uint32_t tag = 0) {
    int32_t value;
    return read_signed_int(memory_io(bytes(form)), minimum, maximum, &value, tag);
}

TEST_F(signed_ints, of_another_tag_are_refused) {
    EXPECT_FAILURE(read_int("0A 01 05", 0, 10), "Wrong tag, expected BE_INTEGER");
    EXPECT_FAILURE(read_int("00 00", 0, 10), "Wrong tag, expected BE_INTEGER");
    EXPECT_FAILURE(read_int("01 05", 0, 10, BE_ENUMERATED), "Wrong tag, expected BE_INTEGER");
}

TEST_F(signed_ints, take_a_tag_that_was_read) {
    EXPECT_SUCCESS(read_int("01 05", 0, 10, BE_INTEGER));
}

TEST_F(signed_ints, have_a_definite_length_of_at_most_four) {
    EXPECT_FAILURE(read_int("02 80", 0, 10), BAD_INT);
    EXPECT_FAILURE(read_int("02 05 00 00 00 00 05", 0, 10), BAD_INT);
}

TEST_F(signed_ints, are_read_within_both_limits) {
    EXPECT_SUCCESS(read_int("02 01 F6", -10, 10));
    EXPECT_SUCCESS(read_int("02 01 0A", -10, 10));
    EXPECT_FAILURE(read_int("02 01 F5", -10, 10), BAD_INT);
    EXPECT_FAILURE(read_int("02 01 0B", -10, 10), BAD_INT);
}

TEST_F(signed_ints, stay_where_they_were_read_when_refused) {
    memory_io stream(bytes("02 02 00 80"));
    int32_t value = 0;
    EXPECT_FAILURE(read_signed_int(stream, 0, 127, &value, 0), BAD_INT);
    EXPECT_EQ(value, 128);
}

TEST_F(signed_ints, are_written_within_both_limits) {
    memory_io stream;
    EXPECT_SUCCESS(write_signed_int(stream, -10, 10, -10));
    EXPECT_SUCCESS(write_signed_int(stream, -10, 10, 10));
    EXPECT_EQ(hex(stream.written), "02 01 F6 02 01 0A");
}

TEST_F(signed_ints, out_of_range_write_nothing) {
    memory_io stream;
    EXPECT_FAILURE(write_signed_int(stream, -10, 10, 11), "data out of range in write_signed_int");
    EXPECT_FAILURE(write_signed_int(stream, -10, 10, -11), "data out of range in write_signed_int");
    EXPECT_EQ(stream.calls, 0U);
}

// BOOLEAN and NULL.

TEST_F(booleans, of_another_tag_are_refused) {
    int32_t value;
    EXPECT_FAILURE(read_bool(memory_io(bytes("02 01 01")), &value, 0), "Wrong tag, expected BE_BOOLEAN");
    EXPECT_FAILURE(read_bool(memory_io(bytes("01 01")), &value, BE_NULL), "Wrong tag, expected BE_BOOLEAN");
}

TEST_F(booleans, have_exactly_one_byte) {
    int32_t value;
    EXPECT_FAILURE(read_bool(memory_io(bytes("01 00")), &value, 0), BAD_BOOL);
    EXPECT_FAILURE(read_bool(memory_io(bytes("01 02 01 01")), &value, 0), BAD_BOOL);
    EXPECT_FAILURE(read_bool(memory_io(bytes("01 80")), &value, 0), BAD_BOOL);
}

TEST_F(booleans, are_written_as_one_for_any_truth) {
    memory_io stream;
    EXPECT_SUCCESS(write_bool(stream, -7));
    EXPECT_EQ(hex(stream.written), "01 01 01");
}

TEST_F(nulls, of_another_tag_are_refused) {
    EXPECT_FAILURE(read_null(memory_io(bytes("01 01 01")), 0), "Wrong tag, expected BE_NULL");
    EXPECT_FAILURE(read_null(memory_io(bytes("00")), BE_BOOLEAN), "Wrong tag, expected BE_NULL");
}

TEST_F(nulls, have_no_content) {
    const char *text = "Null object contains data of non-zero length";
    EXPECT_FAILURE(read_null(memory_io(bytes("05 01 00")), 0), text);
    EXPECT_FAILURE(read_null(memory_io(bytes("05 80")), 0), text);
}

// OCTET STRING.

static const char *read_text(const std::string &form, uint32_t limit, uint32_t tag = 0) {
    char *text = nullptr;
    auto *failure = read_string(memory_io(bytes(form)), limit, &text, tag);
    heap_free(text);
    return failure;
}

TEST_F(strings, of_another_tag_are_refused) {
    EXPECT_FAILURE(read_text("02 01 61", 5), "Wrong tag, expected BE_STRING");
    EXPECT_FAILURE(read_text("01 61", 5, BE_INTEGER), "Wrong tag, expected BE_STRING");
}

TEST_F(strings, are_read_up_to_the_limit_and_no_further) {
    EXPECT_SUCCESS(read_text("04 03 61 62 63", 3));
    EXPECT_FAILURE(read_text("04 03 61 62 63", 2), BAD_STRING);
    EXPECT_SUCCESS(read_text("04 00", 0));
    EXPECT_FAILURE(read_text("04 84 FF FF FF FF", 65536), BAD_STRING);
}

TEST_F(strings, have_a_definite_length) {
    EXPECT_FAILURE(read_text("04 80 00 00", 5), BAD_STRING);
}

TEST_F(strings, are_ended_behind_their_content) {
    memory_io stream(bytes("04 05 61 00 62 FF 63"));
    char *text = nullptr;
    EXPECT_SUCCESS(read_string(stream, 5, &text, 0));
    text_guard owner(text);
    EXPECT_EQ(hex(std::string(text, 6)), "61 00 62 FF 63 00");
}

TEST_F(strings, need_memory) {
    host.fail_allocation = 1;
    EXPECT_FAILURE(read_text("04 00", 5), "Unable to allocate data in read_string");
}

TEST_F(strings, that_are_absent_go_as_empty_ones) {
    memory_io stream;
    EXPECT_SUCCESS(write_string(stream, 5, nullptr));
    EXPECT_EQ(hex(stream.written), "04 00");
}

TEST_F(strings, are_written_up_to_the_limit) {
    memory_io stream;
    EXPECT_SUCCESS(write_string(stream, 3, "abc"));
    EXPECT_EQ(hex(stream.written), "04 03 61 62 63");
}

TEST_F(strings, beyond_the_limit_leave_their_tag_behind) {
    memory_io stream;
    EXPECT_FAILURE(write_string(stream, 2, "abc"), "data out of range in write_string");
    EXPECT_EQ(hex(stream.written), "04");
}

TEST_F(strings, of_more_than_127_bytes_have_a_long_length) {
    memory_io stream;
    EXPECT_SUCCESS(write_string(stream, 65536, std::string(65536, 'x').c_str()));
    EXPECT_EQ(hex(stream.written.substr(0, 6)), "04 83 01 00 00 78");
    EXPECT_EQ(stream.written.size(), 65536U + 5);
}

// ENUMERATED.

static const char *read_number(const std::string &form, uint32_t expected, uint32_t tag = 0) {
    uint32_t value;
    return read_enumerated(memory_io(bytes(form)), &value, expected, tag);
}

TEST_F(enumerated_values, stand_under_the_tag_that_is_expected) {
    EXPECT_SUCCESS(read_number("0A 01 05", BE_ENUMERATED));
    EXPECT_SUCCESS(read_number("7F 21 01 05", 267));
    EXPECT_SUCCESS(read_number("01 05", 267, 267));
    EXPECT_FAILURE(read_number("0A 01 05", 267), "Wrong tag, expected another type");
    EXPECT_FAILURE(read_number("01 05", BE_ENUMERATED, BE_INTEGER), "Wrong tag, expected another type");
}

TEST_F(enumerated_values, go_under_the_tag_that_is_given) {
    memory_io stream;
    EXPECT_SUCCESS(write_enumerated(stream, 200, 267));
    EXPECT_EQ(hex(stream.written), "7F 21 02 00 C8");
}

TEST_F(enumerated_values, have_a_definite_length_of_at_most_five) {
    EXPECT_FAILURE(read_number("0A 80", BE_ENUMERATED), BAD_ENUMERATED);
    EXPECT_FAILURE(read_number("0A 06 00 00 00 00 00 01", BE_ENUMERATED), BAD_ENUMERATED);
}

TEST_F(enumerated_values, are_not_negative) {
    EXPECT_FAILURE(read_number("0A 01 80", BE_ENUMERATED), BAD_ENUMERATED);
    EXPECT_FAILURE(read_number("0A 04 FF FF FF FF", BE_ENUMERATED), BAD_ENUMERATED);
}

TEST_F(enumerated_values, have_32_bits) {
    EXPECT_FAILURE(read_number("0A 05 01 00 00 00 00", BE_ENUMERATED), BAD_ENUMERATED);
    EXPECT_SUCCESS(read_number("0A 05 00 FF FF FF FF", BE_ENUMERATED));
}

// Big numbers.

static const char *read_big(const std::string &form, uint32_t tag = 0) {
    bignum *number = nullptr;
    auto *failure = read_bignum(memory_io(form), &number, tag);
    bn_free(number);
    return failure;
}

static bignum_guard number_of(size_t size, char top) {
    std::string content(size, '\x11');
    content[0] = top;
    bignum_guard number(bn_new_small(0));
    EXPECT_SUCCESS(bn_set_data(number.get(), content.data(), content.size()));
    return number;
}

TEST_F(bignums, of_another_tag_are_refused) {
    EXPECT_FAILURE(read_big(bytes("0A 01 05")), "Wrong tag, expected BE_INTEGER");
    EXPECT_FAILURE(read_big(bytes("01 05"), BE_STRING), "Wrong tag, expected BE_INTEGER");
}

TEST_F(bignums, take_a_tag_that_was_read) {
    EXPECT_SUCCESS(read_big(bytes("01 05"), BE_INTEGER));
}

TEST_F(bignums, have_a_definite_length) {
    EXPECT_FAILURE(read_big(bytes("02 80")), "data out of range in read_bignum");
}

TEST_F(bignums, are_unsigned) {
    memory_io stream(bytes("02 04 FF FF FF FF"));
    bignum *number = nullptr;
    ASSERT_EQ(noted_failure(read_bignum(stream, &number, 0)), "(none)");
    bignum_guard owner(number);
    EXPECT_TRUE(bn_equals_small(number, 0xFFFFFFFF));
}

TEST_F(bignums, of_several_pieces_are_put_together) {
    constexpr size_t size = 300'000; // the content is read in pieces of 64 and more kilobytes
    std::string content;
    for (size_t i = 0; i < size; i++)
        content.push_back(static_cast<char>(i % 251 + 1));
    memory_io stream(bytes("02 83 04 93 E0") + content + bytes("55"));
    bignum *number = nullptr;
    ASSERT_EQ(noted_failure(read_bignum(stream, &number, 0)), "(none)");
    bignum_guard owner(number);
    std::string back(size, '\0');
    size_t length = size;
    EXPECT_SUCCESS(bn_get_data(number, back.data(), &length));
    EXPECT_EQ(length, size);
    EXPECT_TRUE(back == content);
    EXPECT_EQ(hex(stream.left()), "55");
}

TEST_F(bignums, of_absurd_length_cost_no_memory_before_their_bytes_have_come) {
    size_t largest = 0;
    static size_t *watched;
    watched = &largest;
    const heap_ops watching = {.allocate =
                                   [](size_t size) {
                                       *watched = std::max(*watched, size);
                                       return heap_ops_host.allocate(size);
                                   },
                               .release = heap_ops_host.release};
    const heap_ops *kept = heap_host;
    heap_host = &watching;
    EXPECT_FAILURE(read_big(bytes("02 84 00 FF FF FF 01")), MEMORY_IO_EMPTY);
    EXPECT_FAILURE(read_big(bytes("02 84 FF FF FF FF 01")), "Out of memory in read_bignum");
    heap_host = kept;
    EXPECT_LE(largest, 64U * 1024 + 1);
}

TEST_F(bignums, of_sixteen_megabytes_are_the_longest) {
    const std::string head = bytes("02 84 01 00 00 00");
    EXPECT_SUCCESS(read_big(head + std::string(16U << 20, '\x01')));
    EXPECT_FAILURE(read_big(bytes("02 84 01 00 00 01") + std::string((16U << 20) + 1, '\x01')),
                   "Out of memory in read_bignum");
}

// Whichever allocation fails: the content's first piece, a later one, the number, its limbs.
TEST_F(bignums, need_memory_at_every_step) {
    const std::string form = bytes("02 83 02 00 00") + std::string(0x20000, '\x01');
    uint32_t allocation = 1;
    for (; allocation < 20; allocation++) {
        host.fail_allocation = allocation;
        bignum *number = nullptr;
        auto *failure = read_bignum(memory_io(form), &number, 0);
        if (failure == nullptr) {
            bn_free(number);
            break;
        }
        EXPECT_EQ(noted_failure(failure), "Out of memory in read_bignum") << allocation;
        EXPECT_EQ(host.blocks, 0) << allocation;
    }
    host.fail_allocation = 0;
    EXPECT_GT(allocation, 4U);
}

TEST_F(bignums, are_written_up_to_35_limbs) {
    bignum_guard number = number_of(140, '\x80');
    memory_io stream;
    EXPECT_SUCCESS(write_bignum(stream, number.get()));
    EXPECT_EQ(hex(stream.written.substr(0, 5)), "02 81 8C 80 11");
    EXPECT_EQ(stream.written.size(), 143U);
}

TEST_F(bignums, of_more_than_35_limbs_are_not_written) {
    bignum_guard number = number_of(141, '\x01');
    memory_io stream;
    EXPECT_FAILURE(write_bignum(stream, number.get()), "Buffer given to bn_get_data is too small");
    EXPECT_EQ(stream.written, "");
}

// REAL.

static const char *read_double(const std::string &form, double *out) {
    return read_real(memory_io(form), out, 0);
}

static std::string decimal_real(const std::string &text) {
    return bytes("09") + static_cast<char>(text.size() + 1) + '\0' + text;
}

TEST_F(reals, of_another_tag_are_refused) {
    double value;
    EXPECT_FAILURE(read_double(bytes("02 01 05"), &value), "Wrong tag, expected BE_REAL");
}

TEST_F(reals, take_a_tag_that_was_read) {
    double value = 1;
    EXPECT_SUCCESS(read_real(memory_io(bytes("00")), &value, BE_REAL));
    EXPECT_EQ(value, 0.0);
}

TEST_F(reals, have_a_definite_length_below_60) {
    double value = 0;
    EXPECT_FAILURE(read_double(bytes("09 80"), &value), BAD_REAL);
    EXPECT_SUCCESS(read_double(decimal_real("1." + std::string(56, '0')), &value));
    EXPECT_EQ(value, 1.0);
    EXPECT_FAILURE(read_double(decimal_real("1." + std::string(57, '0')), &value), BAD_REAL);
}

TEST_F(reals, that_are_zero_as_a_text_are_refused) {
    double value;
    for (const char *text : {"0.0", "-0", "", "abc", "1e-999"})
        EXPECT_FAILURE(read_double(decimal_real(text), &value), "Zero/non-zero real mismatch") << text;
}

TEST_F(reals, that_are_no_number_as_a_text_pass) {
    double value = 0;
    EXPECT_SUCCESS(read_double(decimal_real("nan"), &value));
    EXPECT_TRUE(std::isnan(value));
}

TEST_F(reals, of_another_form_are_refused) {
    double value;
    for (const char *form : {"09 01 01", "09 02 03 31", "09 01 42", "09 01 80", "09 01 FF"})
        EXPECT_FAILURE(read_double(bytes(form), &value), "Unsupported real number format revceived") << form;
}

TEST_F(reals, that_are_infinite_come_back) {
    for (double value : {HUGE_VAL, -HUGE_VAL}) {
        memory_io out;
        EXPECT_SUCCESS(write_real(out, value));
        double back = 0;
        EXPECT_SUCCESS(read_double(out.written, &back));
        EXPECT_EQ(back, value);
    }
}

TEST_F(reals, that_are_no_number_come_back_as_zero) {
    memory_io out;
    EXPECT_SUCCESS(write_real(out, std::nan("")));
    EXPECT_EQ(hex(out.written), "09 01 60");
    double back = 1;
    EXPECT_SUCCESS(read_double(out.written, &back));
    EXPECT_EQ(back, 0.0);
}

TEST_F(reals, that_are_minus_zero_are_zero) {
    memory_io out;
    EXPECT_SUCCESS(write_real(out, -0.0));
    EXPECT_EQ(hex(out.written), "09 00");
}

TEST_F(reals, at_the_ends_of_the_range_fit) {
    using limits = std::numeric_limits<double>;
    for (double value : {limits::max(), limits::lowest(), limits::min(), limits::denorm_min()}) {
        memory_io out;
        EXPECT_SUCCESS(write_real(out, value));
        double back = 0;
        EXPECT_SUCCESS(read_double(out.written, &back));
        EXPECT_NEAR(back / value, 1, 2e-1);
    }
}
