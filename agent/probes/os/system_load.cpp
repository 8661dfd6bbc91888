#include "probes/os/system_load.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/perf_counter.h"
#include "probes/os/rounding.h"

#include <cmath>
#include <limits>

namespace {

// One figure: where it comes from and what its failures are called.
struct load_figure {
    const char *id;
    perf_counter *(*create)();
    const char *missing;
    const char *(*format_failure)(const char *reason);
    int32_t (*value_of)(double value);
};

} // namespace

// Hosts have the sum of all processors under one of two names.
static perf_counter *create_idle() {
    perf_counter *counter = create_counter_english("System", nullptr, "% Total Processor Time", false);
    if (counter != nullptr) return counter;
    return create_counter_english("Processor", "_Total", "% Processor Time", false);
}

static perf_counter *create_context_switches() {
    return create_counter_english("System", nullptr, "Context Switches/sec", true);
}

static perf_counter *create_uptime() {
    return create_counter_english("System", nullptr, "System Up Time", true);
}

static const char *format_idle_failure(const char *reason) {
    return format_error("Could not get counter value in check_load: %s", reason);
}

static const char *format_switches_failure(const char *reason) {
    return format_error("Could not get counter value for context switches: %s", reason);
}

static const char *format_uptime_failure(const char *reason) {
    return format_error("Could not get counter value for uptime: %s", reason);
}

// Hundredths of a percent.
static int32_t idle_of(double busy) {
    return truncated_integer(std::ceil(std::fmax(100.0 - busy, 0.0) * 100.0));
}

static constexpr load_figure FIGURES[] = {
    {"idle", create_idle, "Could not find counter in check_load", format_idle_failure, idle_of},
    {"cswitch", create_context_switches, "Could not find performance counter for context switches",
     format_switches_failure, truncated_integer},
    {"uptime", create_uptime, "Could not locate performance counter in check_uptime", format_uptime_failure,
     nearest_integer},
};

static devnode *new_idle() {
    devnode *device = new_scan_device({.id = "idle",
                                       .name = "Idle CPU time",
                                       .comment = "Idle CPU time",
                                       .type = TYPE_CONTINUOUS,
                                       .unit = "%",
                                       .description = 5});
    set_range_hint(device, 0, std::numeric_limits<double>::quiet_NaN(), 10000.0);
    return device;
}

static devnode *new_context_switches() {
    return new_scan_device({.id = "cswitch",
                            .name = "Context switches",
                            .comment = "Context switches/sec",
                            .type = TYPE_CONTINUOUS,
                            .unit = "/s",
                            .description = 6});
}

static devnode *new_uptime() {
    return new_scan_device({.id = "uptime",
                            .name = "System uptime",
                            .comment = "System uptime",
                            .type = TYPE_SECONDS,
                            .unit = "s",
                            .description = 7});
}

const char *scan_system(devtree *root) {
    agent_log(LOG_TRACE, "In scan_system");
    devnode *found = nullptr;
    if (perf_counter *counter = create_idle()) {
        agent_log(LOG_TRACE, "Found idle");
        put_in_front(&found, new_idle());
        free_counter(counter);
    }
    if (perf_counter *counter = create_counter_english("System", nullptr, "Context Switches/sec", false)) {
        agent_log(LOG_TRACE, "Found context switches");
        put_in_front(&found, new_context_switches());
        free_counter(counter);
    } else {
        agent_log(LOG_WARNING, "Could not locate Context Switches performance counter");
    }
    put_in_front(&found, new_uptime());
    return offer_devices(root, "system", "System Information", "%0r", 0, found);
}

static const load_figure *find_figure(const char *id) {
    for (const load_figure &figure : FIGURES)
        if (text_equal(figure.id, id)) return &figure;
    return nullptr;
}

const char *check_system(devnode *device, resnode *result) {
    const load_figure *figure = find_figure(device->id);
    if (figure == nullptr) return format_error("Unknown system check requested: %s", device->id);
    if (find_device_counter(device) == nullptr) {
        set_counter_state(device, figure->create());
        if (device->state == nullptr) return figure->missing;
    }
    double value = -1.0;
    if (auto *failure = get_device_value(&value, device)) return figure->format_failure(failure);
    result->value = figure->value_of(value);
    return nullptr;
}
