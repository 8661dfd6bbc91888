// Processes that a test makes up, behind the operations of the process checks.
#pragma once

#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/os/process_chain.h"
#include "probes/os/snapshot_chain.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

struct scripted_process {
    std::string name;
    bool opens = true;
    bool has_modules = true;
    bool has_name = true;
    bool cut = false;
};

struct scripted_processes {
    explicit scripted_processes(test_host *on);
    ~scripted_processes();
    scripted_processes(const scripted_processes &) = delete;
    scripted_processes &operator=(const scripted_processes &) = delete;

    test_host *host;
    bool has_module = true;
    bool has_function = true;

    // The snapshot.
    std::vector<std::u16string> names;
    uint32_t needs = 0;          // bytes below which it does not fit, where that is more than its own size
    int32_t status = 0;          // forced
    std::vector<uint32_t> sizes; // of the buffers that were offered
    int walked = 0;              // records that were looked at

    // The old way.
    std::vector<std::pair<uint32_t, scripted_process>> table;
    bool lists = true;
    uint32_t claims = 0; // bytes that the listing says it has filled, unless 0
    std::vector<uint32_t> opened;
    int open_handles = 0;
};

inline scripted_processes *the_processes;

inline bool scripted_has_module(const char *module) {
    EXPECT_STREQ(module, "ntdll.dll");
    the_processes->host->last_error = 126;
    return the_processes->has_module;
}

inline bool scripted_has_function(const char *function) {
    EXPECT_STREQ(function, "ZwQuerySystemInformation");
    the_processes->host->last_error = 127;
    return the_processes->has_function;
}

inline int32_t scripted_snapshot(uint32_t information_class, uint8_t *buffer, uint32_t size) {
    EXPECT_EQ(information_class, 5U);
    EXPECT_EQ(std::count(buffer, buffer + std::min<uint32_t>(size, 1 << 20), 0),
              std::min<uint32_t>(size, 1 << 20));
    the_processes->sizes.push_back(size);
    the_processes->host->last_error = 31;
    if (the_processes->status != 0) return the_processes->status;
    auto bytes = make_chain(the_processes->names, reinterpret_cast<uintptr_t>(buffer));
    if (size < std::max<size_t>(bytes.size(), the_processes->needs)) return STATUS_INFO_LENGTH_MISMATCH;
    std::copy(bytes.begin(), bytes.end(), buffer);
    return 0;
}

inline bool scripted_next_process(process_walk *walk, char *name, uint32_t size) {
    EXPECT_EQ(size, 260U);
    char16_t wide[IMAGE_NAME_SIZE];
    if (!next_in_chain(walk, wide)) return false;
    the_processes->walked++;
    size_t length = 0;
    for (; wide[length] != u'\0'; length++)
        name[length] = static_cast<char>(wide[length]);
    name[length] = '\0';
    return true;
}

inline bool scripted_enum_processes(uint32_t *ids, uint32_t size, uint32_t *out_returned) {
    EXPECT_EQ(size, 16384U);
    uint32_t count = 0;
    for (const auto &[id, process] : the_processes->table)
        if (count < size / 4) ids[count++] = id;
    *out_returned = the_processes->claims != 0 ? the_processes->claims : count * 4;
    return the_processes->lists;
}

inline scripted_process *find_scripted(uint32_t id) {
    for (auto &[its_id, process] : the_processes->table)
        if (its_id == id) return &process;
    return nullptr;
}

inline process *scripted_open_process(uint32_t rights, uint32_t id) {
    EXPECT_EQ(rights, 0x410U);
    the_processes->opened.push_back(id);
    scripted_process *found = find_scripted(id);
    if (found == nullptr || !found->opens) return nullptr;
    the_processes->open_handles++;
    return reinterpret_cast<process *>(found);
}

inline bool scripted_modules(process *handle, process_module **out_first, uint32_t size,
                             uint32_t *out_needed) {
    EXPECT_EQ(size, 8U);
    *out_needed = 24;
    *out_first = reinterpret_cast<process_module *>(handle);
    the_processes->host->last_error = 299;
    return reinterpret_cast<scripted_process *>(handle)->has_modules;
}

inline bool scripted_module_name(process *handle, process_module *module, char *name, uint32_t size) {
    EXPECT_EQ(size, 128U);
    EXPECT_EQ(reinterpret_cast<void *>(module), reinterpret_cast<void *>(handle));
    const auto *found = reinterpret_cast<scripted_process *>(handle);
    copy_bounded(name, found->name.c_str(), size);
    return found->has_name;
}

inline bool scripted_name_is_cut(const process *handle) {
    return reinterpret_cast<const scripted_process *>(handle)->cut;
}

inline void scripted_close_process(process *) {
    the_processes->open_handles--;
}

inline const processes_ops scripted_processes_ops = {
    .GetModuleHandleA = scripted_has_module,
    .GetProcAddress = scripted_has_function,
    .ZwQuerySystemInformation = scripted_snapshot,
    .next_process = scripted_next_process,
    .EnumProcesses = scripted_enum_processes,
    .OpenProcess = scripted_open_process,
    .EnumProcessModules = scripted_modules,
    .GetModuleBaseNameA = scripted_module_name,
    .name_is_cut = scripted_name_is_cut,
    .CloseHandle = scripted_close_process,
};

inline scripted_processes::scripted_processes(test_host *on) : host(on) {
    the_processes = this;
    processes_host = &scripted_processes_ops;
}

inline scripted_processes::~scripted_processes() {
    EXPECT_EQ(open_handles, 0) << "processes left open";
    processes_host = nullptr;
    the_processes = nullptr;
}
