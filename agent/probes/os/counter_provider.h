// Performance counters for a host that has no such service: English objects, instances and counters, worked
// out from the texts in which the kernel tells its own state.
//
// The functions are the counter operations of such a host, with their contract (perf_counter_ops.h). Names
// are compared exactly, and national names are the English ones. A collection reads each source once, and
// only those that its counters need; no file stays open.
//
// A level needs one sample, a rate or a share two, between which time and its base must have moved on. A
// rate whose counter went back (a device came anew, a counter was cleared) starts over; the share that went
// back in a percentage is 0, since the kernel takes back a tick of idle time now and then. Percentages end at
// 100. A collection has no data where none of its counters finds its number: the instance has gone.
#pragma once

#include "probes/os/counter_sources.h"

#include <cstddef>
#include <cstdint>

struct pdh_query;
struct pdh_counter;

uint32_t provider_open_query(pdh_query **out);
uint32_t provider_add_counter(pdh_query *query, const char *path, pdh_counter **out);
uint32_t provider_remove_counter(pdh_counter *counter);
uint32_t provider_close_query(pdh_query *query);
uint32_t provider_collect(pdh_query *query);
uint32_t provider_format_value(pdh_counter *counter, uint32_t format, double *out);
uint32_t provider_name_by_index(uint32_t index, char *name, uint32_t *size);
uint32_t provider_index_by_name(const char *name, uint32_t *out_index);
uint32_t provider_query_value(const char *name, char *buffer, uint32_t *size);
uint32_t provider_enum_objects(char *objects, uint32_t *size, uint32_t detail, bool refresh);
uint32_t provider_enum_object_items(const char *object, char *counters, uint32_t *counter_size,
                                    char *instances, uint32_t *instance_size, uint32_t detail);
uint32_t provider_counter_info(pdh_counter *counter, uint32_t *size, void *description);
