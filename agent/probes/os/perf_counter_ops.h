// What the counter gateway asks of a host: counters in the words of PDH.
//
// A host that has no such service answers from counter_provider.
#pragma once

#include <cstddef>
#include <cstdint>

struct pdh_query;
struct pdh_counter;

enum : uint32_t { PDH_FMT_DOUBLE = 0x200 };

enum : uint32_t {
    PDH_OK = 0,
    ERROR_MORE_DATA = 234, // of the name table
    PDH_CSTATUS_NO_MACHINE = 0x800007D0,
    PDH_MORE_DATA = 0x800007D2,
    PDH_NO_DATA = 0x800007D5,
    PDH_CSTATUS_NO_OBJECT = 0xC0000BB8,
    PDH_CSTATUS_NO_COUNTER = 0xC0000BB9,
    PDH_MEMORY_ALLOCATION_FAILURE = 0xC0000BBB,
    PDH_INVALID_HANDLE = 0xC0000BBC,
    PDH_INVALID_ARGUMENT = 0xC0000BBD,
    PDH_FUNCTION_NOT_FOUND = 0xC0000BBE,
    PDH_CSTATUS_NO_COUNTERNAME = 0xC0000BBF,
    PDH_CSTATUS_BAD_COUNTERNAME = 0xC0000BC0,
    PDH_INVALID_DATA = 0xC0000BC6,
    PDH_STRING_NOT_FOUND = 0xC0000BD4,
};

// Each call gives PDH_OK or one of the statuses above.
struct perf_counter_ops {
    // An empty query on this host.
    uint32_t (*PdhOpenQueryA)(pdh_query **out);
    // Adds the counter that a path in national names tells: PDH_MEMORY_ALLOCATION_FAILURE,
    // PDH_INVALID_HANDLE, PDH_INVALID_ARGUMENT, PDH_FUNCTION_NOT_FOUND, PDH_CSTATUS_NO_COUNTERNAME,
    // PDH_CSTATUS_BAD_COUNTERNAME, PDH_CSTATUS_NO_COUNTER or PDH_CSTATUS_NO_MACHINE on failure.
    uint32_t (*PdhAddCounterA)(pdh_query *query, const char *path, pdh_counter **out);
    uint32_t (*PdhRemoveCounter)(pdh_counter *counter);
    uint32_t (*PdhCloseQuery)(pdh_query *query);
    // Takes one sample for the counters of the query: PDH_NO_DATA, PDH_INVALID_HANDLE or another failure.
    uint32_t (*PdhCollectQueryData)(pdh_query *query);
    // With PDH_FMT_DOUBLE alone, so that percentages stay capped by the host. PDH_INVALID_DATA says that more
    // samples are needed; PDH_INVALID_HANDLE, PDH_INVALID_ARGUMENT.
    uint32_t (*PdhGetFormattedCounterValue)(pdh_counter *counter, uint32_t format, double *out);
    // The national name of an index, and the index of a national name. `*size` is that of the buffer.
    uint32_t (*PdhLookupPerfNameByIndexA)(uint32_t index, char *name, uint32_t *size);
    uint32_t (*PdhLookupPerfIndexByNameA)(const char *name, uint32_t *out_index);
    // A value of HKEY_PERFORMANCE_DATA. `*size` holds the buffer's size before and the value's behind the
    // call; ERROR_MORE_DATA says that the buffer is too small, or another system error code.
    uint32_t (*RegQueryValueExA)(const char *name, char *buffer, uint32_t *size);

    // What there is to count, as texts behind each other, each with its end, and an empty one behind the
    // last; nothing above the detail level. The sizes hold those of the buffers before and those that are
    // needed behind the call, PDH_MORE_DATA says that a buffer is too small or absent. `refresh` makes the
    // host look anew. A host that lacks one of these three functions gives PDH_FUNCTION_NOT_FOUND.
    uint32_t (*PdhEnumObjectsA)(char *objects, uint32_t *size, uint32_t detail, bool refresh);
    // The counters and the instances of an object, by its national name. Instances of one name stand there as
    // often as they are.
    uint32_t (*PdhEnumObjectItemsA)(const char *object, char *counters, uint32_t *counter_size,
                                    char *instances, uint32_t *instance_size, uint32_t detail);
    // A counter's description: bytes that begin as counter_description.
    uint32_t (*PdhGetCounterInfoA)(pdh_counter *counter, uint32_t *size, void *description);
};

struct counter_description {
    uint32_t length;
    uint32_t type; // the type word
};

inline constexpr uint32_t DETAIL_NOVICE = 100;
inline constexpr uint32_t DETAIL_ADVANCED = 200;
inline constexpr uint32_t DETAIL_EXPERT = 300;
inline constexpr uint32_t DETAIL_WIZARD = 400;

extern const perf_counter_ops perf_counter_ops_host;
extern const perf_counter_ops *perf_counter_host;
