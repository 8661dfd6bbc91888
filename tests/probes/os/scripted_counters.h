// A host whose counters, names and failures a test writes down.
#pragma once

#include "probes/os/counter_names.h"
#include "probes/os/perf_counter_ops.h"

#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct scripted_counters {
    scripted_counters();
    ~scripted_counters();
    scripted_counters(const scripted_counters &) = delete;
    scripted_counters &operator=(const scripted_counters &) = delete;

    // The English names with their indexes, and the host's own names for them. `add` gives both at once.
    std::string table;
    bool table_ends = true; // with an empty text
    std::map<uint32_t, std::string> national;
    void add(uint32_t index, const std::string &english, const std::string &name);

    // What the reads of the table give, one a read; 0 when it is empty. A read into a small buffer gives 234.
    std::deque<uint32_t> table_statuses;
    std::vector<uint32_t> table_reads; // the sizes of the buffers

    std::set<std::string> paths; // what can be added
    uint32_t open_status = 0;
    uint32_t add_status = PDH_CSTATUS_NO_COUNTER;
    std::deque<uint32_t> collect_statuses;          // 0 when it is empty
    std::deque<std::pair<uint32_t, double>> values; // status 0 and 50.0 when it is empty
    std::vector<uint32_t> formats;

    std::vector<std::string> added; // paths, in order
    int queries = 0;                // open ones
    int counters = 0;
    int collections = 0;
};

inline scripted_counters *the_counters;

template <class T>
T next_of(std::deque<T> &answers, T otherwise) {
    if (answers.empty()) return otherwise;
    T answer = answers.front();
    answers.pop_front();
    return answer;
}

inline uint32_t scripted_open(pdh_query **out) {
    if (the_counters->open_status != 0) return the_counters->open_status;
    the_counters->queries++;
    *out = reinterpret_cast<pdh_query *>(the_counters);
    return 0;
}

inline uint32_t scripted_add(pdh_query *query, const char *path, pdh_counter **out) {
    EXPECT_EQ(query, reinterpret_cast<pdh_query *>(the_counters));
    the_counters->added.emplace_back(path);
    if (!the_counters->paths.contains(path)) return the_counters->add_status;
    the_counters->counters++;
    *out = reinterpret_cast<pdh_counter *>(&the_counters->counters);
    return 0;
}

inline uint32_t scripted_remove(pdh_counter *counter) {
    EXPECT_EQ(counter, reinterpret_cast<pdh_counter *>(&the_counters->counters));
    EXPECT_GT(the_counters->queries, 0) << "a counter goes before its query";
    the_counters->counters--;
    return 0;
}

inline uint32_t scripted_close(pdh_query *) {
    the_counters->queries--;
    return 0;
}

inline uint32_t scripted_collect(pdh_query *) {
    the_counters->collections++;
    return next_of(the_counters->collect_statuses, 0U);
}

inline uint32_t scripted_format(pdh_counter *, uint32_t format, double *out) {
    the_counters->formats.push_back(format);
    auto [status, value] = next_of(the_counters->values, {0U, 50.0});
    if (status == 0) *out = value;
    return status;
}

inline uint32_t scripted_name(uint32_t index, char *name, uint32_t *size) {
    auto found = the_counters->national.find(index);
    if (found == the_counters->national.end()) return PDH_INVALID_ARGUMENT;
    snprintf(name, *size, "%s", found->second.c_str());
    return 0;
}

inline uint32_t scripted_index(const char *name, uint32_t *out_index) {
    for (const auto &[index, national] : the_counters->national) {
        if (national != name) continue;
        *out_index = index;
        return 0;
    }
    return PDH_STRING_NOT_FOUND;
}

inline uint32_t scripted_table(const char *name, char *buffer, uint32_t *size) {
    EXPECT_STREQ(name, "Counter 009");
    the_counters->table_reads.push_back(*size);
    uint32_t status = next_of(the_counters->table_statuses, 0U);
    if (status != 0) return status;
    std::string whole = the_counters->table;
    if (the_counters->table_ends) whole += '\0';
    bool fits = whole.size() <= *size;
    if (fits) memcpy(buffer, whole.data(), whole.size());
    *size = static_cast<uint32_t>(whole.size());
    return fits ? 0 : 234;
}

inline const perf_counter_ops scripted_counter_ops = {
    .PdhOpenQueryA = scripted_open,
    .PdhAddCounterA = scripted_add,
    .PdhRemoveCounter = scripted_remove,
    .PdhCloseQuery = scripted_close,
    .PdhCollectQueryData = scripted_collect,
    .PdhGetFormattedCounterValue = scripted_format,
    .PdhLookupPerfNameByIndexA = scripted_name,
    .PdhLookupPerfIndexByNameA = scripted_index,
    .RegQueryValueExA = scripted_table,
};

inline scripted_counters::scripted_counters() {
    the_counters = this;
    perf_counter_host = &scripted_counter_ops;
    counter_names_reset();
}

inline scripted_counters::~scripted_counters() {
    counter_names_reset();
    EXPECT_EQ(counters, 0) << "counters left open";
    EXPECT_EQ(queries, 0) << "queries left open";
    perf_counter_host = nullptr;
    the_counters = nullptr;
}

inline void scripted_counters::add(uint32_t index, const std::string &english, const std::string &name) {
    table += std::to_string(index) + '\0' + english + '\0';
    national[index] = name;
}
