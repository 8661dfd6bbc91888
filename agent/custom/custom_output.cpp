#include "custom/custom_output.h"

#include "devtree/check_table.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/text.h"

#include <cstdlib>
#include <cstring>

// ---- lines

static void log_line(const custom_check *check, const char *line) {
    if (*line != '\0') agent_log(LOG_DETAIL, "%s : %s", check->name, line);
}

// The line ends behind the first group already.
static const char *take_value(const custom_check *check, const char *group, custom_reading *reading) {
    const char *value = group;
    while (is_blank(*value))
        value++;
    if (*value == '-')
        return format_error("%s: Error parsing result \"%s\": Negative numbers are not supported",
                            check->name, group);
    reading->value_found = 1;
    if (check->type == CUSTOM_Real || check->type == CUSTOM_DiffReal) {
        reading->value_real = atof(value);
        return nullptr;
    }
    if (check->type == CUSTOM_Boolean) agent_log(LOG_WARNING, "CUSTOM_Boolean encountered in process_output");
    reading->value_integer = parse_decimal(value, nullptr);
    return nullptr;
}

// A match in which the first group takes no part says nothing of a value.
static int find_value(const custom_check *check, const char *line, tn_match matches[2]) {
    int code = tn_regexec(&check->result_regex, line, 2, matches);
    return code == 0 && matches[1].start < 0 ? TN_REG_NOMATCH : code;
}

static const char *process_line(const custom_check *check, char *line, custom_reading *reading) {
    if (!has_pattern(check) || reading->value_found != 0) {
        log_line(check, line);
        return nullptr;
    }
    tn_match matches[2];
    int code = find_value(check, line, matches);
    if (code == 0) {
        agent_log(LOG_DETAIL, "%s*: %s", check->name, line);
        line[matches[1].end] = '\0';
        return take_value(check, line + matches[1].start, reading);
    }
    if (code == TN_REG_NOMATCH) {
        agent_log(LOG_DETAIL, "%s : %s", check->name, line);
        return nullptr;
    }
    agent_log(LOG_ERROR, "tn_regexec returned error %d", code);
    if (*line != '\0') agent_log(LOG_DETAIL, "%s!: %s", check->name, line);
    return nullptr;
}

static void end_line(const char *line, char *feed) {
    *feed = '\0';
    while (feed != line && feed[-1] == '\r')
        *--feed = '\0';
}

static void drop_long_line(const custom_check *check, char *buffer, char **end) {
    **end = '\0';
    agent_log(LOG_DETAIL, "%s : %s", check->name, buffer);
    *end = buffer;
}

const char *process_output(const custom_check *check, char *buffer, char **end, custom_reading *reading) {
    char *line = buffer;
    const char *failure = nullptr;
    while (failure == nullptr) {
        auto *feed = static_cast<char *>(memchr(line, '\n', static_cast<size_t>(*end - line)));
        if (feed == nullptr) break;
        end_line(line, feed);
        failure = process_line(check, line, reading);
        line = feed + 1;
    }
    auto left = static_cast<size_t>(*end - line);
    memmove(buffer, line, left);
    *end = buffer + left;
    if (failure == nullptr && left >= OUTPUT_SIZE) drop_long_line(check, buffer, end);
    return failure;
}

// ---- the outcome

static void keep_reading(custom_check *check, const custom_reading *reading, int64_t now) {
    check->last_time = now;
    check->last_integer = reading->value_integer;
    check->last_real = reading->value_real;
}

static double change_of(const custom_check *check, const custom_reading *reading) {
    if (check->type == CUSTOM_DiffReal) return reading->value_real - check->last_real;
    uint64_t delta = reading->value_integer - check->last_integer;
    if (delta >> 32 > 0xFFFFFFFD) {
        agent_log(LOG_TRACE, "Counter is 32-bit wrapping");
        delta = static_cast<uint32_t>(delta);
    }
    return static_cast<double>(delta);
}

// Two readings within a second divide by zero, and a clock that was set back gives a rate below zero: the
// first is answered by the caller, the second is reported as it is.
static const char *rate_result(resnode *result, custom_check *check, const custom_reading *reading) {
    int64_t now = time_now();
    if (check->last_time == 0) {
        keep_reading(check, reading, now);
        result->real_value = -1.0;
        return "Value available after one more reading";
    }
    result->real_value = change_of(check, reading) / static_cast<double>(now - check->last_time);
    keep_reading(check, reading, now);
    return nullptr;
}

static const char *boolean_result(resnode *result, uint32_t exit_code) {
    result->value = exit_code == 0 ? 1 : 0;
    result->comment = text_copy(exit_code == 0 ? "Success" : "Failed");
    return nullptr;
}

static const char *integer_result(resnode *result, uint64_t value) {
    if (value >= 0x80000000)
        return "Number too large to fit in an integer check result. Use type=real instead.";
    result->value = static_cast<int32_t>(value);
    return nullptr;
}

const char *custom_result(resnode *result, custom_check *check, const custom_reading *reading,
                          uint32_t exit_code) {
    if (check->no_value_exitcode != 0 && exit_code == check->no_value_exitcode) return CHECK_NO_RESULT;
    if (check->type == CUSTOM_Boolean) return boolean_result(result, exit_code);
    if (exit_code != 0) return format_error("Failed with exit code %d", static_cast<int32_t>(exit_code));
    if (reading->value_found == 0)
        return check->no_value_if_no_match != 0 ? CHECK_NO_RESULT : "Custom check returned no value";
    switch (check->type) {
    case CUSTOM_Integer:
        return integer_result(result, reading->value_integer);
    case CUSTOM_Real:
        result->real_value = reading->value_real;
        return nullptr;
    case CUSTOM_DiffInteger:
    case CUSTOM_DiffReal:
        return rate_result(result, check, reading);
    default:
        return "Uninitialized custom check type";
    }
}
