#include "custom/custom_output.h"

#include "devtree/check_table.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

namespace {

struct output : testing::Test {
    test_host host;
    custom_check check = {};
    custom_reading reading = {};
    char buffer[OUTPUT_SIZE + 1];
    char *end = buffer;

    output() {
        regex_host = &regex_ops_host;
        check.name = const_cast<char *>("c");
        use(CUSTOM_Integer, "^Result:[[:space:]]*([[:digit:]]+)[[:space:]]*$");
    }
    ~output() override {
        tn_regfree(&check.result_regex);
        EXPECT_EQ(host.blocks, 0);
    }

    void use(uint32_t type, const char *pattern) {
        check.type = type;
        tn_regfree(&check.result_regex);
        if (pattern != nullptr) {
            EXPECT_EQ(tn_regcomp(&check.result_regex, pattern), 0);
        }
    }
    const char *take(const std::string &text) {
        EXPECT_LE(text.size(), static_cast<size_t>(buffer + OUTPUT_SIZE - end));
        memcpy(end, text.data(), text.size());
        end += text.size();
        return process_output(&check, buffer, &end, &reading);
    }
    std::string left() const { return {buffer, static_cast<size_t>(end - buffer)}; }
};

} // namespace

// ---- lines

TEST_F(output, of_a_whole_line_is_taken_and_the_rest_is_kept) {
    EXPECT_SUCCESS(take("noise\nResult: 42\nRes"));
    EXPECT_EQ(left(), "Res");
    EXPECT_EQ(reading.value_found, 1U);
    EXPECT_EQ(reading.value_integer, 42U);
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : noise"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c*: Result: 42"));
    EXPECT_SUCCESS(take("ult: 43\n"));
    EXPECT_EQ(left(), "");
    EXPECT_EQ(reading.value_integer, 42U) << "the first line that matches wins";
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : Result: 43"));
}

TEST_F(output, in_pieces_of_one_byte_gives_the_same) {
    for (char c : std::string("a\r\n\nResult: 7\r\r\nb\n"))
        EXPECT_SUCCESS(take(std::string(1, c)));
    EXPECT_EQ(reading.value_integer, 7U);
    EXPECT_EQ(host.told(), (std::vector<std::string>{"c : a", "c : ", "c*: Result: 7", "c : b"}));
}

TEST_F(output, loses_the_carriage_returns_ahead_of_a_line_feed_alone) {
    EXPECT_SUCCESS(take("a\rb\r\r\n\r\n"));
    EXPECT_EQ(host.told(), (std::vector<std::string>{"c : a\rb", "c : "}));
}

TEST_F(output, of_an_empty_line_is_not_told_behind_the_value_or_without_a_pattern) {
    EXPECT_SUCCESS(take("Result: 1\n\n\r\nx\n"));
    EXPECT_EQ(host.told(), (std::vector<std::string>{"c*: Result: 1", "c : x"}));
    use(CUSTOM_Boolean, nullptr);
    host.log.clear();
    EXPECT_SUCCESS(take("\ny\n"));
    EXPECT_EQ(host.told(), (std::vector<std::string>{"c : y"}));
}

TEST_F(output, of_a_line_that_does_not_fit_is_told_and_dropped) {
    std::string piece(OUTPUT_SIZE, 'x');
    EXPECT_SUCCESS(take(piece.substr(1)));
    EXPECT_EQ(left().size(), OUTPUT_SIZE - 1);
    EXPECT_TRUE(host.log.empty());
    EXPECT_SUCCESS(take("x"));
    EXPECT_EQ(left(), "");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : " + piece));
    EXPECT_EQ(reading.value_found, 0U);
}

TEST_F(output, of_a_value_behind_300_characters_is_not_found) {
    std::string line = std::string(300, ' ') + "Result: 5\n";
    use(CUSTOM_Integer, "Result: ([0-9]+)");
    for (size_t at = 0; at < line.size(); at += 256)
        EXPECT_SUCCESS(take(line.substr(at, 256)));
    EXPECT_EQ(reading.value_integer, 5U) << "what is behind the piece is a line of its own";
    reading = {};
    use(CUSTOM_Integer, "^ +Result: ([0-9]+)");
    line = std::string(250, ' ') + "Result: 5\n";
    EXPECT_SUCCESS(take(line.substr(0, 256)));
    EXPECT_SUCCESS(take(line.substr(256)));
    EXPECT_EQ(reading.value_found, 0U);
}

TEST_F(output, of_a_line_of_255_characters_is_matched) {
    use(CUSTOM_Integer, "^x+([0-9])$");
    EXPECT_SUCCESS(take(std::string(254, 'x') + "6\n"));
    EXPECT_EQ(reading.value_integer, 6U);
}

TEST_F(output, may_hold_zero_bytes) {
    EXPECT_SUCCESS(take(std::string("\0\0zero\nResult: 3\n", 17)));
    EXPECT_EQ(reading.value_integer, 3U);
    EXPECT_SUCCESS(take(std::string(OUTPUT_SIZE, '\0')));
    EXPECT_EQ(left(), "");
}

// ---- values

TEST_F(output, value_ends_with_the_first_group) {
    use(CUSTOM_Integer, "load ([0-9]+) of ([0-9]+)");
    EXPECT_SUCCESS(take("a load 3 of 8\n"));
    EXPECT_EQ(reading.value_integer, 3U);
    use(CUSTOM_Integer, "([0-9]{2})");
    reading = {};
    EXPECT_SUCCESS(take("12345\n"));
    EXPECT_EQ(reading.value_integer, 12U);
}

TEST_F(output, value_starts_behind_its_blanks) {
    use(CUSTOM_Integer, "free:(.*)$");
    EXPECT_SUCCESS(take("free: \t 512 MB\n"));
    EXPECT_EQ(reading.value_integer, 512U);
}

TEST_F(output, value_without_digits_is_zero) {
    use(CUSTOM_Integer, "x(.*)");
    EXPECT_SUCCESS(take("x\n"));
    EXPECT_EQ(reading.value_found, 1U);
    EXPECT_EQ(reading.value_integer, 0U);
}

TEST_F(output, value_wraps_in_64_bits) {
    EXPECT_SUCCESS(take("Result: 18446744073709551618\n"));
    EXPECT_EQ(reading.value_integer, 2U);
}

TEST_F(output, negative_value_is_refused) {
    use(CUSTOM_Integer, "^Result: (-?[0-9]+)$");
    EXPECT_FAILURE(take("Result: -5\n"),
                   "c: Error parsing result \"-5\": Negative numbers are not supported");
    EXPECT_EQ(reading.value_found, 0U);
    end = buffer;
    use(CUSTOM_Real, "=(.*)");
    EXPECT_FAILURE(take("a= -1.5 b\n"),
                   "c: Error parsing result \" -1.5 b\": Negative numbers are not supported");
}

TEST_F(output, real_value_is_read_with_its_exponent) {
    for (uint32_t type : {CUSTOM_Real, CUSTOM_DiffReal}) {
        use(type, "=(.*)");
        reading = {};
        EXPECT_SUCCESS(take("a=1.5e3 x\n"));
        EXPECT_EQ(reading.value_real, 1500.0);
        EXPECT_EQ(reading.value_integer, 0U);
    }
}

TEST_F(output, value_of_a_boolean_is_read_for_the_log_alone) {
    use(CUSTOM_Boolean, "^([0-9])$");
    EXPECT_SUCCESS(take("1\n"));
    EXPECT_TRUE(host.logged(LOG_WARNING, "CUSTOM_Boolean encountered in process_output"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c*: 1"));
    EXPECT_EQ(reading.value_found, 1U);
    EXPECT_EQ(reading.value_integer, 1U);
}

TEST_F(output, value_of_a_group_that_takes_no_part_is_none) {
    use(CUSTOM_Integer, "a|b([0-9])");
    EXPECT_SUCCESS(take("a\nb4\n"));
    EXPECT_EQ(host.told(), (std::vector<std::string>{"c : a", "c*: b4"}));
    EXPECT_EQ(reading.value_integer, 4U);
}

TEST_F(output, search_that_fails_is_told) {
    static const regex_ops failing = {
        .regexec =
            [](const tn_regex *, const char *, size_t count, tn_match *) {
                EXPECT_EQ(count, 2U);
                return 12;
            },
        .regfree = [](tn_regex *regex) { regex_ops_host.regfree(regex); },
    };
    regex_host = &failing;
    EXPECT_SUCCESS(take("Result: 1\n\n"));
    EXPECT_EQ(host.told(), (std::vector<std::string>{"tn_regexec returned error 12", "c!: Result: 1",
                                                     "tn_regexec returned error 12"}));
    EXPECT_TRUE(host.logged(LOG_ERROR, "tn_regexec returned error 12"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c!: Result: 1"));
}

// ---- the outcome

namespace {

struct outcome : output {
    resnode result = {};

    ~outcome() override { heap_free(result.comment); }
    const char *finish(uint32_t exit_code = 0) { return custom_result(&result, &check, &reading, exit_code); }
    void read_integer(uint64_t value) {
        reading.value_found = 1;
        reading.value_integer = value;
    }
    void read_real(double value) {
        reading.value_found = 1;
        reading.value_real = value;
    }
};

} // namespace

TEST_F(outcome, of_a_boolean_is_its_exit_code_alone) {
    check.type = CUSTOM_Boolean;
    EXPECT_SUCCESS(finish(0));
    EXPECT_EQ(result.value, 1);
    EXPECT_STREQ(result.comment, "Success");
    heap_free(result.comment);
    read_integer(1);
    EXPECT_SUCCESS(finish(3));
    EXPECT_EQ(result.value, 0);
    EXPECT_STREQ(result.comment, "Failed");
}

TEST_F(outcome, is_no_reading_for_the_exit_code_that_says_so) {
    for (uint32_t type : {CUSTOM_Boolean, CUSTOM_Integer, CUSTOM_Real, CUSTOM_DiffInteger, CUSTOM_DiffReal}) {
        check.type = type;
        check.no_value_exitcode = 2;
        EXPECT_EQ(finish(2), CHECK_NO_RESULT);
        EXPECT_EQ(result.comment, nullptr);
    }
    check.type = CUSTOM_Integer;
    check.no_value_exitcode = 0;
    EXPECT_FAILURE(finish(0), "Custom check returned no value");
}

TEST_F(outcome, of_another_exit_code_is_a_failure) {
    read_integer(7);
    EXPECT_FAILURE(finish(2), "Failed with exit code 2");
    EXPECT_FAILURE(finish(0xC0000005), "Failed with exit code -1073741819");
    check.no_value_if_no_match = 1;
    reading.value_found = 0;
    EXPECT_FAILURE(finish(2), "Failed with exit code 2");
}

TEST_F(outcome, without_a_value_is_a_failure_unless_it_may_be) {
    EXPECT_FAILURE(finish(), "Custom check returned no value");
    check.no_value_if_no_match = 1;
    EXPECT_EQ(finish(), CHECK_NO_RESULT);
}

TEST_F(outcome, of_an_integer_fits_31_bits) {
    read_integer(0x7FFFFFFF);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.value, INT32_MAX);
    EXPECT_EQ(result.comment, nullptr);
    read_integer(0x80000000);
    EXPECT_FAILURE(finish(), "Number too large to fit in an integer check result. Use type=real instead.");
}

TEST_F(outcome, of_a_real_is_its_value) {
    check.type = CUSTOM_Real;
    read_real(2.5);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.real_value, 2.5);
}

TEST_F(outcome, of_an_unknown_type_is_a_failure) {
    check.type = 5;
    read_integer(1);
    EXPECT_FAILURE(finish(), "Uninitialized custom check type");
}

namespace {

struct rate : outcome {
    rate() { check.type = CUSTOM_DiffInteger; }
    // The rate between two readings so many seconds apart.
    double between(uint64_t first, uint64_t second, int64_t seconds) {
        check.last_time = 0;
        read_integer(first);
        EXPECT_FAILURE(finish(), "Value available after one more reading");
        host.now += seconds;
        read_integer(second);
        EXPECT_SUCCESS(finish());
        return result.real_value;
    }
};

} // namespace

TEST_F(rate, takes_two_readings) {
    read_integer(100);
    EXPECT_FAILURE(finish(), "Value available after one more reading");
    EXPECT_EQ(result.real_value, -1.0);
    EXPECT_EQ(check.last_time, host.now);
    host.now += 4;
    read_integer(110);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.real_value, 2.5);
    host.now += 2;
    read_integer(111);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.real_value, 0.5) << "against the reading just before";
}

TEST_F(rate, wraps_at_32_bits) {
    EXPECT_EQ(between(4'294'967'290, 5, 2), 5.5);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Counter is 32-bit wrapping"));
}

TEST_F(rate, wraps_for_a_fall_of_up_to_8589934592) {
    EXPECT_EQ(between(8'589'934'592, 0, 1), 0.0);
    EXPECT_EQ(host.count_logged("wrapping"), 1);
    EXPECT_EQ(between(8'589'934'593, 0, 1), 18446744065119616000.0);
    EXPECT_EQ(host.count_logged("wrapping"), 1);
    EXPECT_EQ(between(10'000'000'000, 5, 1), static_cast<double>(0 - UINT64_C(9'999'999'995)));
    EXPECT_EQ(host.count_logged("wrapping"), 1);
}

TEST_F(rate, of_a_large_rise_does_not_wrap) {
    EXPECT_EQ(between(0, 0xFFFFFFFDFFFFFFFF, 1), 18446744065119617000.0);
    EXPECT_EQ(host.count_logged("wrapping"), 0);
    EXPECT_EQ(between(0, UINT64_C(0xFFFFFFFE00000001), 1), 1.0) << "the same as a fall, to 64 bits";
    EXPECT_EQ(host.count_logged("wrapping"), 1);
}

TEST_F(rate, of_reals_may_fall) {
    check.type = CUSTOM_DiffReal;
    read_real(10.0);
    EXPECT_FAILURE(finish(), "Value available after one more reading");
    host.now += 4;
    read_real(4.0);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.real_value, -1.5);
    EXPECT_EQ(host.count_logged("wrapping"), 0);
}

TEST_F(rate, within_a_second_is_not_finite) {
    EXPECT_FALSE(std::isfinite(between(1, 5, 0)));
    EXPECT_TRUE(std::isnan(between(5, 5, 0)));
}

TEST_F(rate, over_a_clock_that_was_set_back_is_reported_as_it_is) {
    EXPECT_EQ(between(1, 5, -2), -2.0);
}

TEST_F(rate, at_the_time_zero_waits_for_one_more_reading) {
    host.now = 0;
    read_integer(1);
    EXPECT_FAILURE(finish(), "Value available after one more reading");
    EXPECT_FAILURE(finish(), "Value available after one more reading");
    host.now = 2;
    EXPECT_FAILURE(finish(), "Value available after one more reading");
    host.now = 3;
    read_integer(2);
    EXPECT_SUCCESS(finish());
    EXPECT_EQ(result.real_value, 1.0);
}
