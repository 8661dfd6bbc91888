// Performance counters for a host that has no such service: English objects, instances and counters, worked
// out from the texts in which the kernel tells its own state.
//
// The functions are the counter operations of such a host, with their contract (perf_counter_ops.h). Names
// are compared exactly, and national names are the English ones. A collection reads each source once, and
// only those that its counters need. Nothing stays open and no text is kept between two calls.
//
// A level needs one sample, a rate or a percentage two, between which time and its base must have moved on. A
// rate whose counter went back (a device came anew, a counter was cleared) starts over; the share that went
// back in a percentage is 0, since the kernel takes back a tick of idle time now and then. Percentages end at
// 100.
#pragma once

#include <cstddef>
#include <cstdint>

struct pdh_query;
struct pdh_counter;

// Where the provider's numbers come from.
struct counter_sources_ops {
    // Reads a file, or the names in a folder (its path ends in '/'), one a line. The bytes that came, `size`
    // where there may be more, -1 on failure.
    int64_t (*read_source)(const char *path, char *buffer, size_t size);
    // Nanoseconds of a clock that never goes back and stands while the host sleeps.
    uint64_t (*ticks)();
};

extern const counter_sources_ops counter_sources_ops_host;
extern const counter_sources_ops *counter_sources_host;

uint32_t provider_open_query(pdh_query **out);
uint32_t provider_add_counter(pdh_query *query, const char *path, pdh_counter **out);
uint32_t provider_remove_counter(pdh_counter *counter);
uint32_t provider_close_query(pdh_query *query);
uint32_t provider_collect(pdh_query *query);
uint32_t provider_format_value(pdh_counter *counter, uint32_t format, double *out);
uint32_t provider_name_by_index(uint32_t index, char *name, uint32_t *size);
uint32_t provider_index_by_name(const char *name, uint32_t *out_index);
uint32_t provider_query_value(const char *name, char *buffer, uint32_t *size);

// Forgets how large sources are, for tests.
void provider_reset();
