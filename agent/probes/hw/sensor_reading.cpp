#include "probes/hw/sensor_reading.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/ipmi_channel.h"
#include "probes/hw/ipmi_texts.h"

#include <cmath>
#include <iterator>

namespace {

// IPMI 2.0, clause 35.14. The response:
//
//   byte  what
//   0     the raw reading
//   1     7 event messages enabled, 6 scanning enabled, 5 reading unavailable
//   2     states 7 to 0
//   3     states 14 to 8, where the sensor has so many
constexpr uint8_t NETFN_SENSOR = 4;
constexpr uint8_t GET_SENSOR_READING = 0x2D;

constexpr uint32_t VERIFYING_READS = 2; // behind the first one
constexpr uint32_t BELIEVED_ZEROS = 2;

// The states of a drive bay, in the order in which they are decided: IPMI 2.0, clause 42.2, sensor type 13.
struct bay_state {
    uint8_t byte;
    uint8_t mask;
    int32_t value;
    const char *comment;
};

constexpr bay_state BAY_STATES[] = {
    {2, 0x02, 3, "Disk faulty"},
    {2, 0x04, 2, "Predicted disk fault"},
    {2, 0x80, 1, "Rebuild/remap in progress"},
    {3, 0x01, 3, "Rebuild/remap aborted (was not completed normally)"},
    {2, 0x08, 0, "Disk OK, hot spare"},
    {2, 0x01, 0, "Disk OK"},
    {0, 0, 5, "No disk in slot"}, // where none of them is there
};
constexpr uint32_t BAY_RESPONSE_SIZE = 4;

// What must be as it is here in byte 1 before the states count.
struct reading_mark {
    uint8_t mask;
    bool set;
    const char *failure;
};

constexpr reading_mark READING_MARKS[] = {
    {0x80, true, "All event messages disabled from this sensor"},
    {0x40, true, "Sensor scanning disabled"},
    {0x20, false, "Reading/state unavailable"},
};

// Linearizations by their code: IPMI 2.0, clause 43.1, byte 24.
using linear_function = double (*)(double);
constexpr linear_function LINEARIZATIONS[] = {
    [](double v) { return v; },
    [](double v) { return std::log(v); },
    [](double v) { return std::log10(v); },
    [](double v) { return std::log2(v); },
    [](double v) { return std::exp(v); },
    [](double v) { return std::pow(10.0, v); },
    [](double v) { return std::exp2(v); },
    [](double v) { return 1 / v; },
    [](double v) { return v * v; },
    [](double v) { return v * v * v; },
    [](double v) { return std::sqrt(v); },
    [](double v) { return std::pow(v, -3.0); }, // where IPMI has the cube root; what is watched is used to it
};

} // namespace

// The LUN of the request is 0 whatever the record says.
static const char *send_get_reading(const sensor_record *record, ipmi_response_guard *out) {
    const ipmi_request request = {
        .netfn = NETFN_SENSOR, .command = GET_SENSOR_READING, .data_len = 1, .data = &record->sensor_number};
    ipmi_response *response = nullptr;
    if (auto *failure = ipmi_command(active_bmcs, &response, &request)) return failure;
    out->reset(response);
    if (response == nullptr) return "Got empty read from IPMI sensor";
    if (response->ccode != 0)
        return format_error("Error reading sensor %s: %s (%i)", record->description,
                            ipmi_ccode_text(response->ccode), static_cast<int>(response->ccode));
    return nullptr;
}

// ---- analog sensors

static bool decode_raw(uint32_t format, uint8_t raw, double *out) {
    switch (format) {
    case FORMAT_UNSIGNED:
        *out = raw;
        return true;
    case FORMAT_ONES_COMPLEMENT: // 1 is added to all values, not only to negative ones
        *out = static_cast<int8_t>(raw + 1);
        return true;
    case FORMAT_TWOS_COMPLEMENT:
        *out = static_cast<int8_t>(raw);
        return true;
    default:
        return false;
    }
}

const char *convert_reading(const sensor_record *record, uint8_t raw, double *out) {
    double x = 0;
    if (!decode_raw(record->numeric_format, raw, &x))
        return format_error("Cannot convert sensor value from format %i",
                            static_cast<int>(record->numeric_format));
    agent_log(LOG_TRACE, "RAW value is: %lf", x);
    agent_log(LOG_TRACE, " M=%lf, B=%lf, Bexp=%lf, Rexp=%lf", record->m, record->b, record->b_exp,
              record->r_exp);
    double scaled =
        (record->m * x + record->b * std::pow(10.0, record->b_exp)) * std::pow(10.0, record->r_exp);
    agent_log(LOG_TRACE, " Scaled value is: %lf", scaled);
    if (record->linearization >= std::size(LINEARIZATIONS))
        return format_error("Unknown linearization function %i", static_cast<int>(record->linearization));
    *out = LINEARIZATIONS[record->linearization](scaled);
    agent_log(LOG_TRACE, " Linearized value is: %lf", *out);
    return nullptr;
}

// Whether the raw value counts. A 0 does once it was read often enough, now or in the checks before.
static bool believe_raw(sensor_record *record, uint8_t raw, uint32_t *rereads) {
    if (raw != 0) {
        if (record->zero_count > 0) record->zero_count--;
        return true;
    }
    if (record->zero_count >= BELIEVED_ZEROS) return true;
    if (*rereads >= VERIFYING_READS) {
        agent_log(LOG_TRACE, "RAW value verified 0");
        record->zero_count++;
        return true;
    }
    ++*rereads;
    agent_log(LOG_TRACE, "RAW value is 0 but has not been zero long will re-read(%d) to verify",
              static_cast<int>(*rereads));
    return false;
}

const char *read_analog_sensor(sensor_record *record, resnode *result) {
    uint8_t raw = 0;
    uint32_t rereads = 0;
    do {
        ipmi_response_guard response;
        if (auto *failure = send_get_reading(record, &response)) return failure;
        raw = response->data[0];
        agent_log(LOG_TRACE, "Read RAW value: 0x%02X from sensor %s", raw, record->description);
    } while (!believe_raw(record, raw, &rereads));
    return convert_reading(record, raw, &result->real_value);
}

// ---- discrete sensors

static void set_result(resnode *result, int32_t value, const char *comment) {
    result->value = value;
    text_replace(&result->comment, text_copy(comment));
}

static const char *decode_digital(const sensor_record *record, const ipmi_response *response,
                                  resnode *result) {
    if (response->data_len < 3)
        return format_error("Got %d bytes in ipmi response, 3 expected.",
                            static_cast<int>(response->data_len));
    const uint8_t *data = response->data;
    bool asserted = (data[2] & 0x02) != 0;
    const char *state = asserted ? "State Asserted" : "State Deasserted";
    agent_log(LOG_TRACE, "Generic bool value of sensor %s: 0x%x:0x%x:0x%x:0x%x %s", record->description,
              data[0], data[1], data[2], data[3], state);
    set_result(result, asserted ? 1 : 0, state);
    return nullptr;
}

static const char *decode_drive_bay(const sensor_record *record, const ipmi_response *response,
                                    resnode *result) {
    if (response->data_len != BAY_RESPONSE_SIZE)
        return format_error("Got %d bytes in ipmi response, 4 expected.",
                            static_cast<int>(response->data_len));
    const uint8_t *data = response->data;
    for (const reading_mark &mark : READING_MARKS)
        if (((data[1] & mark.mask) != 0) != mark.set) return mark.failure;
    agent_log(LOG_TRACE, "Discrete value of sensor %s: 0x%x:0x%x:0x%x:0x%x", record->description, data[0],
              data[1], data[2], data[3]);
    const bay_state *state = BAY_STATES;
    while (state->mask != 0 && (data[state->byte] & state->mask) == 0)
        state++;
    set_result(result, state->value, state->comment);
    return nullptr;
}

const char *read_discrete_sensor(sensor_record *record, resnode *result) {
    ipmi_response_guard response;
    if (auto *failure = send_get_reading(record, &response)) return failure;
    if (response->data_len == 0) return "Got empty read from IPMI sensor";
    if (record->reading_type == READING_DIGITAL) return decode_digital(record, response.get(), result);
    if (record->sensor_type == SENSOR_DRIVE_BAY) return decode_drive_bay(record, response.get(), result);
    agent_log(LOG_NORMAL, " Asked to read discrete value from non-supported sensor: %s\n",
              record->description);
    return "Reading of sensor unsupported";
}

const char *read_sensor(sensor_record *record, resnode *result) {
    if (record->reading_type == READING_DIGITAL || record->numeric_format == FORMAT_NONE)
        return read_discrete_sensor(record, result);
    return read_analog_sensor(record, result);
}
