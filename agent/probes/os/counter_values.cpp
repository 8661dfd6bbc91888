#include "probes/os/counter_values.h"

#include <algorithm>

static constexpr double NANOSECONDS = 1e9;
static constexpr double MILLION = 1e6; // nanoseconds of a millisecond
static constexpr double MILLISECONDS = 1e3;

void add_sample(counter_history *history, const counter_sample &reading, uint64_t ticks) {
    if (history->current.reading.origin != reading.origin) history->samples = 0;
    history->previous = history->current;
    history->current = {.reading = reading, .ticks = ticks};
    history->samples = std::min(history->samples + 1, 2U);
}

// How far a counter has come. Subtracting first and looking at the sign then is right for one that wrapped,
// too.
static double steps(uint64_t from, uint64_t to) {
    return static_cast<double>(static_cast<int64_t>(to - from));
}

static double value_steps(const counter_history &history) {
    return steps(history.previous.reading.value, history.current.reading.value);
}

static double base_steps(const counter_history &history) {
    return steps(history.previous.reading.base, history.current.reading.base);
}

static double time_passed(const counter_history &history) {
    return steps(history.previous.ticks, history.current.ticks);
}

static bool make_rate(const counter_history &history, double *out) {
    double time = time_passed(history);
    double moved = value_steps(history);
    if (history.samples < 2 || time <= 0 || moved < 0) return false;
    *out = moved * NANOSECONDS / time;
    return true;
}

static bool make_percent(const counter_history &history, double *out) {
    double whole = base_steps(history);
    if (history.samples < 2 || whole <= 0) return false;
    *out = std::clamp(value_steps(history) * 100.0 / whole, 0.0, 100.0);
    return true;
}

// Milliseconds of the value for each of time; the base is the number of those that they are the sum of.
static bool make_queue(const counter_history &history, double *out) {
    double time = time_passed(history);
    double moved = value_steps(history);
    auto summed = static_cast<double>(history.current.reading.base);
    if (history.samples < 2 || time <= 0 || moved < 0 || summed <= 0) return false;
    *out = moved * MILLION / time / summed;
    return true;
}

static bool make_time_share(const counter_history &history, bool idle, double *out) {
    double busy = 0;
    if (!make_queue(history, &busy)) return false;
    double percent = std::min(busy * 100.0, 100.0);
    *out = idle ? 100.0 - percent : percent;
    return true;
}

// Where nothing was done it took no time.
static bool make_average(const counter_history &history, double unit, double *out) {
    double moved = value_steps(history);
    double count = base_steps(history);
    if (history.samples < 2 || moved < 0 || count < 0) return false;
    *out = count > 0 ? moved / count / unit : 0.0;
    return true;
}

static bool make_level(const counter_history &history, double unit, double *out) {
    const counter_sample &reading = history.current.reading;
    if (history.samples < 1 || reading.base == 0) return false;
    *out = static_cast<double>(reading.value) / static_cast<double>(reading.base) * unit;
    return true;
}

bool make_counter_value(counter_type type, const counter_history &history, double *out) {
    switch (type) {
    case COUNTER_RATE:
        return make_rate(history, out);
    case COUNTER_PERCENT:
        return make_percent(history, out);
    case COUNTER_TIME_SHARE:
    case COUNTER_IDLE_SHARE:
        return make_time_share(history, type == COUNTER_IDLE_SHARE, out);
    case COUNTER_QUEUE:
        return make_queue(history, out);
    case COUNTER_AVERAGE:
        return make_average(history, 1, out);
    case COUNTER_AVERAGE_TIME:
        return make_average(history, MILLISECONDS, out);
    case COUNTER_PART:
        return make_level(history, 100, out);
    case COUNTER_LEVEL:
    case COUNTER_SECONDS:
        return make_level(history, 1, out);
    }
    return false;
}
