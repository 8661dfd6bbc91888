#include "probes/os/perf_counter_ops.h"

#include <windows.h>

#include <pdh.h>

static uint32_t open_query(pdh_query **out) {
    PDH_HQUERY query = nullptr;
    auto status = static_cast<uint32_t>(PdhOpenQueryA(nullptr, 0, &query));
    *out = static_cast<pdh_query *>(query);
    return status;
}

static uint32_t add_counter(pdh_query *query, const char *path, pdh_counter **out) {
    PDH_HCOUNTER counter = nullptr;
    auto status = static_cast<uint32_t>(PdhAddCounterA(query, path, 0, &counter));
    *out = static_cast<pdh_counter *>(counter);
    return status;
}

static uint32_t remove_counter(pdh_counter *counter) {
    return static_cast<uint32_t>(PdhRemoveCounter(counter));
}

static uint32_t close_query(pdh_query *query) {
    return static_cast<uint32_t>(PdhCloseQuery(query));
}

static uint32_t collect(pdh_query *query) {
    return static_cast<uint32_t>(PdhCollectQueryData(query));
}

static uint32_t format_value(pdh_counter *counter, uint32_t format, double *out) {
    PDH_FMT_COUNTERVALUE value = {};
    auto status = static_cast<uint32_t>(PdhGetFormattedCounterValue(counter, format, nullptr, &value));
    if (status == 0) *out = value.doubleValue;
    return status;
}

static uint32_t name_by_index(uint32_t index, char *name, uint32_t *size) {
    DWORD length = *size;
    auto status = static_cast<uint32_t>(PdhLookupPerfNameByIndexA(nullptr, index, name, &length));
    *size = length;
    return status;
}

static uint32_t index_by_name(const char *name, uint32_t *out_index) {
    DWORD index = 0;
    auto status = static_cast<uint32_t>(PdhLookupPerfIndexByNameA(nullptr, name, &index));
    *out_index = index;
    return status;
}

static uint32_t query_value(const char *name, char *buffer, uint32_t *size) {
    DWORD length = *size;
    LSTATUS status = RegQueryValueExA(HKEY_PERFORMANCE_DATA, name, nullptr, nullptr,
                                      reinterpret_cast<BYTE *>(buffer), &length);
    *size = length;
    return static_cast<uint32_t>(status);
}

const perf_counter_ops perf_counter_ops_host = {
    .PdhOpenQueryA = open_query,
    .PdhAddCounterA = add_counter,
    .PdhRemoveCounter = remove_counter,
    .PdhCloseQuery = close_query,
    .PdhCollectQueryData = collect,
    .PdhGetFormattedCounterValue = format_value,
    .PdhLookupPerfNameByIndexA = name_by_index,
    .PdhLookupPerfIndexByNameA = index_by_name,
    .RegQueryValueExA = query_value,
};
