// The one gateway to the host's performance counters.
//
// The server always speaks English counter names, the host only those of its own language. English names are
// turned into national ones when a counter is created, national names into English ones when a scan reports
// them (counter_names.h).
//
// A counter stays open between the checks of its device: a rate needs two samples, and the first of them is
// the one of the check before. Each counter has a query of its own, so that a reset touches one device only.
#pragma once

#include "devtree/devtree.h"

struct pdh_query;
struct pdh_counter;

struct perf_counter {
    pdh_query *query;
    pdh_counter *counter;
    char *path; // in national names, for messages
};

inline constexpr uint32_t COUNTER_STATE_MAGIC = 0x54AD8921;

// A new counter, from national names or from English ones; the instance, which may be absent, is never
// translated. Absent where the counter cannot be made; `report_errors` logs the refusal of the host.
perf_counter *create_counter(const char *object, const char *instance, const char *counter,
                             bool report_errors);
perf_counter *create_counter_english(const char *object, const char *instance, const char *counter,
                                     bool report_errors);

// Takes absent.
void free_counter(perf_counter *counter);

using perf_counter_guard = guard<perf_counter, free_counter>;

// Writes "\object(instance)\counter", or "\object\counter" without an instance, cut at the buffer's size.
void format_counter_path(const char *object, const char *instance, const char *counter, char *buffer,
                         size_t size);

// The counter that the device keeps as its state, or absent.
perf_counter *find_device_counter(const devnode *device);

// Makes the counter the device's state, which frees it; an absent counter leaves the device as it is.
void set_counter_state(devnode *device, perf_counter *counter);
void free_counter_state(devnode *device);

// Takes one sample, and a second one a second later where the first is not enough for a value.
[[nodiscard]] const char *get_counter_value(double *out, perf_counter *counter);

// Whether a failure of get_counter_value says that the query holds no data: by its buffer, not by its words.
bool is_no_data_failure(const char *failure);

// get_counter_value for the counter that the device keeps. The no-data failure takes the counter away from
// the device, so that its next check builds a fresh query.
[[nodiscard]] const char *get_device_value(double *out, devnode *device);

// The check of the `perf` family: any counter, by its place in the tree.
const char *check_perfcnt(devnode *device, resnode *result);
