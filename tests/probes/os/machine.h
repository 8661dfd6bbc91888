// A recorded machine in place of the host: the texts below tests/data/machines, and a clock for the counters.
#pragma once

#include "probes/os/counter_provider.h"
#include "probes/os/perf_counter_ops.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

struct recorded_machine {
    explicit recorded_machine(std::string name);
    ~recorded_machine();
    recorded_machine(const recorded_machine &) = delete;
    recorded_machine &operator=(const recorded_machine &) = delete;

    // Turns to another machine.
    void use(const std::string &name);
    // The recorded text, unless `texts` holds another for this path.
    std::string text(const std::string &path) const;
    bool has(const std::string &path) const;
    // Exchanges a part of a text, which must be there.
    void change(const std::string &path, const std::string &from, const std::string &to);

    std::string folder;
    std::map<std::string, std::string> texts;
    std::set<std::string> unreadable;
    uint64_t now = 1'000'000'000'000; // nanoseconds
    uint64_t slept = 0;               // of the time since the start
    std::vector<std::string> reads;   // paths, in order
};

inline recorded_machine *the_machine;

inline std::string names_in(const std::string &folder) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string &name : names)
        text += name + "\n";
    return text;
}

inline int64_t read_recorded(const char *path, char *buffer, size_t size) {
    the_machine->reads.emplace_back(path);
    if (the_machine->unreadable.contains(path)) return -1;
    if (!the_machine->has(path)) return -1;
    std::string text = the_machine->text(path);
    size_t length = std::min(size, text.size());
    memcpy(buffer, text.data(), length);
    return static_cast<int64_t>(length);
}

inline uint64_t recorded_ticks() {
    return the_machine->now;
}

inline uint64_t recorded_uptime() {
    return the_machine->now + the_machine->slept;
}

// One file for each descriptor.
inline int64_t recorded_open_files(const char *folder) {
    the_machine->reads.emplace_back(folder);
    std::string path = std::string(folder) + "/";
    if (the_machine->unreadable.contains(folder) || !the_machine->has(path)) return -1;
    std::string names = the_machine->text(path);
    return std::count(names.begin(), names.end(), '\n');
}

inline uint32_t recorded_page_size() {
    return 4096;
}

inline uint32_t recorded_clock_rate() {
    return 100;
}

inline const counter_sources_ops recorded_sources = {.read_source = read_recorded,
                                                     .ticks = recorded_ticks,
                                                     .uptime = recorded_uptime,
                                                     .page_size = recorded_page_size,
                                                     .clock_rate = recorded_clock_rate,
                                                     .count_open_files = recorded_open_files};

inline const perf_counter_ops recorded_counter_ops = {
    .PdhOpenQueryA = provider_open_query,
    .PdhAddCounterA = provider_add_counter,
    .PdhRemoveCounter = provider_remove_counter,
    .PdhCloseQuery = provider_close_query,
    .PdhCollectQueryData = provider_collect,
    .PdhGetFormattedCounterValue = provider_format_value,
    .PdhLookupPerfNameByIndexA = provider_name_by_index,
    .PdhLookupPerfIndexByNameA = provider_index_by_name,
    .RegQueryValueExA = provider_query_value,
    .PdhEnumObjectsA = provider_enum_objects,
    .PdhEnumObjectItemsA = provider_enum_object_items,
    .PdhGetCounterInfoA = provider_counter_info,
};

inline void recorded_machine::use(const std::string &name) {
    folder = TEST_DATA "/machines/" + name;
    counter_sources_reset();
}

inline recorded_machine::recorded_machine(std::string name) : folder(TEST_DATA "/machines/" + name) {
    the_machine = this;
    counter_sources_host = &recorded_sources;
    counter_sources_reset();
}

inline recorded_machine::~recorded_machine() {
    counter_sources_reset();
    counter_sources_host = nullptr;
    the_machine = nullptr;
}

inline std::string recorded_text(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::string recorded_machine::text(const std::string &path) const {
    if (auto found = texts.find(path); found != texts.end()) return found->second;
    return path.ends_with('/') ? names_in(folder + path) : recorded_text(folder + path);
}

inline bool recorded_machine::has(const std::string &path) const {
    return texts.contains(path) || std::filesystem::exists(folder + path);
}

inline void recorded_machine::change(const std::string &path, const std::string &from,
                                     const std::string &to) {
    std::string changed = text(path);
    size_t at = changed.find(from);
    if (at == std::string::npos) throw std::runtime_error("no \"" + from + "\" in " + path);
    texts[path] = changed.replace(at, from.size(), to);
}
