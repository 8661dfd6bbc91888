// A host whose counters, names and failures a test writes down.
#pragma once

#include "probes/os/counter_names.h"
#include "probes/os/perf_counter_ops.h"
#include "settings/settings.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct scripted_object {
    std::vector<std::string> counters;
    std::vector<std::string> instances;
};

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

    // What can be enumerated, in this order. All of it can be added, but for what is closed.
    std::vector<std::pair<std::string, scripted_object>> objects;
    bool items_open = true;
    std::set<std::string> closed;          // paths
    std::map<std::string, uint32_t> types; // by counter; 0x10410500 where none is given
    std::deque<uint32_t> object_statuses;  // of PdhEnumObjectsA; what is right when it is empty
    std::deque<uint32_t> item_statuses;    // of PdhEnumObjectItemsA
    std::deque<uint32_t> info_statuses;    // of PdhGetCounterInfoA
    std::vector<uint32_t> details;         // asked for
    std::vector<bool> refreshes;
    std::vector<std::string> enumerated; // objects, in order
    const scripted_object *find_object(const std::string &name) const;
    bool is_item(const std::string &path) const;
    agent_config config = {.perf_cnt_level = 200};

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
    if (!the_counters->paths.contains(path) && !the_counters->is_item(path)) return the_counters->add_status;
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
    if (found->second.size() >= *size) return PDH_MORE_DATA;
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

inline uint32_t give_list(const std::vector<std::string> &names, char *buffer, uint32_t *size) {
    std::string whole;
    for (const std::string &name : names)
        whole += name + '\0';
    whole += '\0';
    bool fits = buffer != nullptr && whole.size() <= *size;
    if (fits) memcpy(buffer, whole.data(), whole.size());
    *size = static_cast<uint32_t>(whole.size());
    return fits ? PDH_OK : PDH_MORE_DATA;
}

inline uint32_t scripted_objects(char *objects, uint32_t *size, uint32_t detail, bool refresh) {
    the_counters->details.push_back(detail);
    the_counters->refreshes.push_back(refresh);
    std::vector<std::string> names;
    for (const auto &[name, items] : the_counters->objects)
        names.push_back(name);
    uint32_t status = give_list(names, objects, size);
    return next_of(the_counters->object_statuses, status);
}

inline uint32_t scripted_items(const char *object, char *counters, uint32_t *counter_size, char *instances,
                               uint32_t *instance_size, uint32_t detail) {
    the_counters->details.push_back(detail);
    the_counters->enumerated.emplace_back(object);
    const scripted_object *found = the_counters->find_object(object);
    if (found == nullptr) return next_of(the_counters->item_statuses, uint32_t{PDH_CSTATUS_NO_OBJECT});
    uint32_t status = give_list(found->counters, counters, counter_size);
    status = std::max(status, give_list(found->instances, instances, instance_size));
    return next_of(the_counters->item_statuses, status);
}

inline uint32_t scripted_info(pdh_counter *counter, uint32_t *size, void *description) {
    EXPECT_EQ(counter, reinterpret_cast<pdh_counter *>(&the_counters->counters));
    std::string name = the_counters->added.back().substr(the_counters->added.back().rfind('\\') + 1);
    auto type = the_counters->types.find(name);
    counter_description found = {.length = 40,
                                 .type = type != the_counters->types.end() ? type->second : 0x10410500};
    bool fits = description != nullptr && *size >= 40;
    if (fits) memcpy(description, &found, sizeof found);
    *size = 40; // the host's record is longer than what is read of it
    uint32_t status = fits ? PDH_OK : PDH_MORE_DATA;
    return next_of(the_counters->info_statuses, status);
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
    .PdhEnumObjectsA = scripted_objects,
    .PdhEnumObjectItemsA = scripted_items,
    .PdhGetCounterInfoA = scripted_info,
};

inline const scripted_object *scripted_counters::find_object(const std::string &name) const {
    for (const auto &[each, items] : objects)
        if (each == name) return &items;
    return nullptr;
}

inline bool scripted_counters::is_item(const std::string &path) const {
    if (!items_open || closed.contains(path)) return false;
    size_t end = path.find_first_of("(\\", 1);
    if (end == std::string::npos) return false;
    const scripted_object *found = find_object(path.substr(1, end - 1));
    if (found == nullptr || (path[end] == '(') == found->instances.empty()) return false;
    const auto &names = found->counters;
    return std::find(names.begin(), names.end(), path.substr(path.rfind('\\') + 1)) != names.end();
}

inline scripted_counters::scripted_counters() {
    the_counters = this;
    perf_counter_host = &scripted_counter_ops;
    config_in_force = &config;
    counter_names_reset();
}

inline scripted_counters::~scripted_counters() {
    counter_names_reset();
    EXPECT_EQ(counters, 0) << "counters left open";
    EXPECT_EQ(queries, 0) << "queries left open";
    perf_counter_host = nullptr;
    config_in_force = nullptr;
    the_counters = nullptr;
}

inline void scripted_counters::add(uint32_t index, const std::string &english, const std::string &name) {
    table += std::to_string(index) + '\0' + english + '\0';
    national[index] = name;
}
