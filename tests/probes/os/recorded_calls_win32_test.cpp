// Asks this host what the recorded one was asked, and holds the answers that do not depend on the machine
// against the record. With TN_RECORD_CALLS in the environment it writes a new record to that path instead.

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory_ops.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/processes_ops.h"
#include "probes/os/recorded_calls.h"
#include "probes/os/services_ops.h"

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <windows.h>

namespace {

struct questioner {
    recorded_calls record;

    void note(const call_words &question, const call_words &answer) { record.answers[question] = answer; }
    // For a call that gives nothing, or fails with a reason.
    bool note_success(const call_words &question, bool success, const call_words &given = {}) {
        call_words answer = {success ? "1" : "0"};
        if (!success) answer.push_back(word(last_error()));
        if (success) answer.insert(answer.end(), given.begin(), given.end());
        note(question, answer);
        return success;
    }

    void ask_all();

private:
    void ask_drive(const std::string &path);
    void ask_drives();
    void ask_memory();
    void ask_system();
    void ask_network_params(uint32_t size);
    void ask_adapters(uint32_t size);
    void ask_names();
    void ask_english_names();
    void ask_counter(const std::string &path);
    void ask_lists();
    void ask_process(uint32_t id);
    void ask_processes();
    void ask_service(service_manager *manager, const std::string &name);
    void ask_services();
};

} // namespace

// ---- drives

void questioner::ask_drive(const std::string &path) {
    const drives_ops &ops = drives_ops_host;
    note({"GetDriveTypeA", path}, {word(ops.GetDriveTypeA(path.c_str()))});
    uint64_t available = 0;
    uint64_t total = 0;
    uint64_t free = 0;
    bool known = ops.GetDiskFreeSpaceExA(path.c_str(), &available, &total, &free);
    note_success({"GetDiskFreeSpaceExA", path}, known, {word(available), word(total), word(free)});
    char mount[125];
    mount_search *search = ops.FindFirstVolumeMountPointA(path.c_str(), mount, sizeof mount);
    call_words mounts;
    if (search != nullptr) {
        do
            mounts.emplace_back(mount);
        while (ops.FindNextVolumeMountPointA(search, mount, sizeof mount));
        ops.FindVolumeMountPointClose(search);
    }
    note_success({"FindFirstVolumeMountPointA", path}, search != nullptr, mounts);
}

void questioner::ask_drives() {
    const drives_ops &ops = drives_ops_host;
    note({"drives", "GetModuleHandleA", "no such module.dll"},
         {word(ops.GetModuleHandleA("no such module.dll") ? 1 : 0)});
    note({"drives", "GetModuleHandleA", "kernel32.dll"},
         {word(ops.GetModuleHandleA("kernel32.dll") ? 1 : 0)});
    for (const char *function :
         {"FindFirstVolumeMountPointA", "FindNextVolumeMountPointA", "FindVolumeMountPointClose"})
        note({"drives", "GetProcAddress", function}, {word(ops.GetProcAddress(function) ? 1 : 0)});
    const char *root = nullptr;
    for (uint32_t i = 0; (root = ops.drive_root(i)) != nullptr; i++)
        ask_drive(root);
    ask_drive("C:\\no such folder\\");
}

// ---- memory

static call_words words_of(const memory_status &status) {
    return {word(status.length),         word(status.memory_load),      word(status.total_phys),
            word(status.available_phys), word(status.total_page_file),  word(status.available_page_file),
            word(status.total_virtual),  word(status.available_virtual)};
}

void questioner::ask_memory() {
    const memory_ops &ops = memory_ops_host;
    note({"memory", "GetModuleHandleA", "kernel32.dll"},
         {word(ops.GetModuleHandleA("kernel32.dll") ? 1 : 0)});
    bool known = ops.GetProcAddress("GlobalMemoryStatusEx");
    note({"memory", "GetProcAddress", "GlobalMemoryStatusEx"}, {word(known ? 1 : 0)});
    for (uint32_t length : {63, 64}) {
        memory_status status = {.length = length};
        bool success = ops.GlobalMemoryStatusEx(&status);
        note_success({"GlobalMemoryStatusEx", word(length)}, success, words_of(status));
    }
    memory_status status = {.length = 56};
    ops.GlobalMemoryStatus(&status);
    note({"GlobalMemoryStatus", "56"}, words_of(status));
}

// ---- the host

static void add_list(call_words *words, const std::string &label, const address_entry *list) {
    for (; list != nullptr; list = list->next) {
        words->push_back(label);
        words->emplace_back(list->address);
        words->emplace_back(list->mask);
    }
}

// Asks once more where that is too little, as the agent does.
void questioner::ask_network_params(uint32_t size) {
    std::vector<uint64_t> room(size / 8 + 1);
    auto *params = reinterpret_cast<network_params *>(room.data());
    uint32_t needed = size;
    uint32_t status = host_info_ops_host.GetNetworkParams(params, &needed);
    call_words answer = {word(status), word(needed)};
    if (status == 0) {
        answer.insert(answer.end(),
                      {params->domain_name, word(params->enable_routing), word(params->enable_proxy)});
        add_list(&answer, "server", params->dns_servers);
    }
    note({"GetNetworkParams", word(size)}, answer);
    if (status == NETWORK_BUFFER_OVERFLOW && needed > size) ask_network_params(needed);
}

void questioner::ask_adapters(uint32_t size) {
    std::vector<uint64_t> room(size / 8 + 1);
    auto *adapter = reinterpret_cast<adapter_facts *>(room.data());
    uint32_t needed = size;
    uint32_t status = host_info_ops_host.GetAdaptersInfo(adapter, &needed);
    call_words answer = {word(status), word(needed)};
    for (; status == 0 && adapter != nullptr; adapter = adapter->next) {
        char hardware[2 * sizeof adapter->hardware_address + 1] = "";
        for (uint32_t i = 0; i < adapter->hardware_length && i < sizeof adapter->hardware_address; i++)
            snprintf(hardware + size_t{2} * i, 3, "%02x", adapter->hardware_address[i]);
        answer.insert(answer.end(), {"adapter", adapter->description, word(adapter->type), hardware,
                                     word(adapter->dhcp_enabled ? 1 : 0), adapter->dhcp_server,
                                     adapter->primary_wins, adapter->secondary_wins});
        add_list(&answer, "address", adapter->addresses);
        add_list(&answer, "gateway", adapter->gateways);
    }
    note({"GetAdaptersInfo", word(size)}, answer);
}

void questioner::ask_system() {
    system_facts system = {};
    host_info_ops_host.GetSystemInfo(&system);
    note({"GetSystemInfo"},
         {word(system.processor_architecture), word(system.processors), word(system.active_processor_mask)});
    version_facts version = {};
    bool known = host_info_ops_host.GetVersionExA(&version);
    note_success({"GetVersionExA"}, known,
                 {word(version.major_version), word(version.minor_version), word(version.build_number),
                  word(version.platform_id), word(version.product_type), version.service_pack});
    char name[256] = "";
    for (uint32_t size : {1, 256}) {
        bool named = host_info_ops_host.GetComputerNameA(name, size);
        note_success({"GetComputerNameA", word(size)}, named, {name});
    }
    ask_network_params(600);
    for (uint32_t size : {8, 11264})
        ask_adapters(size);
}

// ---- counters

// Every bit of it comes back.
static std::string word_of_real(double value) {
    char text[40];
    snprintf(text, sizeof text, "%.17g", value);
    return text;
}

void questioner::ask_names() {
    for (uint32_t index : {2, 6, 1846, 234, 238, 510, 674, 0x7FFFFFF0}) {
        char name[128] = "";
        uint32_t size = sizeof name;
        uint32_t status = perf_counter_ops_host.PdhLookupPerfNameByIndexA(index, name, &size);
        note({"PdhLookupPerfNameByIndexA", word(index), word(sizeof name)},
             {word(status), word(size), status == PDH_OK ? name : ""});
    }
    for (const char *name : {"System", "Processor", "% Processor Time", "System Up Time", "PhysicalDisk",
                             "Network Interface", "No Such Name"}) {
        uint32_t index = 0;
        uint32_t status = perf_counter_ops_host.PdhLookupPerfIndexByNameA(name, &index);
        note({"PdhLookupPerfIndexByNameA", name}, {word(status), word(status == PDH_OK ? index : 0)});
    }
}

// As the agent asks: with one byte, then with what is needed.
void questioner::ask_english_names() {
    char little[1];
    uint32_t size = sizeof little;
    uint32_t status = perf_counter_ops_host.RegQueryValueExA("Counter 009", little, &size);
    note({"RegQueryValueExA", "Counter 009", "1"}, {word(status), word(size)});
    std::vector<char> table(size);
    status = perf_counter_ops_host.RegQueryValueExA("Counter 009", table.data(), &size);
    call_words answer = {word(status), word(size)};
    for (size_t at = 0; at < size; at += answer.back().size() + 1)
        answer.emplace_back(table.data() + at, strnlen(table.data() + at, size - at));
    note({"RegQueryValueExA", "Counter 009", "all"}, answer);
}

void questioner::ask_counter(const std::string &path) {
    const perf_counter_ops &ops = perf_counter_ops_host;
    pdh_query *query = nullptr;
    note({"PdhOpenQueryA"}, {word(ops.PdhOpenQueryA(&query))});
    note({"PdhCollectQueryData", ""}, {word(ops.PdhCollectQueryData(query))});
    pdh_counter *counter = nullptr;
    uint32_t status = ops.PdhAddCounterA(query, path.c_str(), &counter);
    note({"PdhAddCounterA", path}, {word(status)});
    if (status == PDH_OK) {
        for (int samples = 0; samples <= 2; samples++) {
            double value = 0;
            if (samples > 0) {
                if (samples == 2) Sleep(1000);
                note({"PdhCollectQueryData", path}, {word(ops.PdhCollectQueryData(query))});
            }
            status = ops.PdhGetFormattedCounterValue(counter, PDH_FMT_DOUBLE, &value);
            note({"PdhGetFormattedCounterValue", path, word(samples)}, {word(status), word_of_real(value)});
        }
        uint32_t size = 0;
        status = ops.PdhGetCounterInfoA(counter, &size, nullptr);
        note({"PdhGetCounterInfoA", path, "0"}, {word(status), word(size)});
        std::vector<uint64_t> room(size / 8 + 1);
        status = ops.PdhGetCounterInfoA(counter, &size, room.data());
        auto *description = reinterpret_cast<counter_description *>(room.data());
        note({"PdhGetCounterInfoA", path, "all"}, {word(status), word(size), word(description->type)});
        note({"PdhRemoveCounter"}, {word(ops.PdhRemoveCounter(counter))});
    }
    note({"PdhCloseQuery"}, {word(ops.PdhCloseQuery(query))});
}

void questioner::ask_lists() {
    uint32_t size = 0;
    for (bool refresh : {true, false}) {
        uint32_t status = perf_counter_ops_host.PdhEnumObjectsA(nullptr, &size, 200, refresh);
        note({"PdhEnumObjectsA", "200", word(refresh ? 1 : 0)}, {word(status), word(size)});
    }
    for (const char *object : {"", "System", "Network Interface", "PhysicalDisk"}) {
        uint32_t counters = 0;
        uint32_t instances = 0;
        uint32_t status =
            perf_counter_ops_host.PdhEnumObjectItemsA(object, nullptr, &counters, nullptr, &instances, 200);
        note({"PdhEnumObjectItemsA", object, "200"}, {word(status), word(counters), word(instances)});
    }
}

// ---- processes and services

void questioner::ask_process(uint32_t id) {
    const processes_ops &ops = processes_ops_host;
    process *handle = ops.OpenProcess(PROCESS_QUERY_AND_READ, id);
    if (!note_success({"OpenProcess", "QueryServiceStatus", word(id)}, handle != nullptr)) return;
    process_module *first = nullptr;
    uint32_t needed = 0;
    bool listed = ops.EnumProcessModules(handle, &first, 8, &needed);
    note_success({"EnumProcessModules", word(id)}, listed, {word(needed)});
    char name[257] = "";
    bool named = listed && ops.GetModuleBaseNameA(handle, first, name, sizeof name);
    note_success({"GetModuleBaseNameA", word(id)}, named, {name});
    ops.CloseHandle(handle);
}

void questioner::ask_processes() {
    uint32_t ids[4096];
    uint32_t returned = 0;
    bool listed = processes_ops_host.EnumProcesses(ids, sizeof ids, &returned);
    call_words given;
    for (uint32_t i = 0; i < returned / sizeof *ids; i++) {
        given.push_back(word(ids[i]));
        ask_process(ids[i]);
    }
    note_success({"EnumProcesses", word(sizeof ids)}, listed, given);
    ask_process(0);
    ask_process(3);
}

void questioner::ask_service(service_manager *manager, const std::string &name) {
    service *handle = services_ops_host.OpenServiceA(manager, name.c_str(), SERVICE_QUERY_STATUS_ACCESS);
    if (!note_success({"OpenServiceA", name}, handle != nullptr)) return;
    service_status status = {};
    bool known = services_ops_host.QueryServiceStatus(handle, &status);
    note_success({"QueryServiceStatus", name}, known, {word(status.type), word(status.current_state)});
    services_ops_host.CloseServiceHandle(handle);
}

void questioner::ask_services() {
    service_manager *manager =
        services_ops_host.OpenSCManagerA(nullptr, "ServicesActive", GENERIC_READ_ACCESS);
    if (!note_success({"OpenSCManagerA", "ServicesActive"}, manager != nullptr)) return;
    std::vector<service_record> batch(4096 / sizeof(service_record));
    bool last = false;
    for (uint32_t resume = 0, start = 0; !last; start = resume) {
        uint32_t needed = 0;
        uint32_t count = 0;
        services_ops_host.SetLastError(0);
        last = services_ops_host.EnumServicesStatusA(manager, SERVICE_WIN32_KINDS, SERVICE_ALL_STATES,
                                                     batch.data(), 4096, &needed, &count, &resume);
        call_words answer = {word(last ? 1 : 0), word(last_error()), word(needed), word(resume)};
        for (uint32_t i = 0; i < count; i++)
            answer.insert(answer.end(), {batch[i].service_name, batch[i].display_name,
                                         word(batch[i].status.type), word(batch[i].status.current_state)});
        note({"EnumServicesStatusA", word(start), "4096"}, answer);
        if (resume == start) break;
    }
    for (const char *name : {"RpcSs", "PlugPlay", "No Such Service", ""})
        ask_service(manager, name);
    services_ops_host.CloseServiceHandle_manager(manager);
}

void questioner::ask_all() {
    ask_drives();
    ask_memory();
    ask_system();
    ask_names();
    ask_english_names();
    for (const char *path : {"\\System\\System Up Time", "\\Processor(_Total)\\% Processor Time",
                             "\\System\\Context Switches/sec", "\\System\\% Total Processor Time",
                             "\\Network Interface(eth0)\\Current Bandwidth",
                             "\\PhysicalDisk(0 C:)\\% Idle Time", "\\System", "nothing"})
        ask_counter(path);
    ask_lists();
    ask_processes();
    ask_services();
}

// Its version; absent on a host that is none.
static const char *wine_version() {
    using version_function = const char *(*)();
    FARPROC found = GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version");
    return found != nullptr ? reinterpret_cast<version_function>(reinterpret_cast<void *>(found))() : nullptr;
}

static bool depends_on_machine(const call_words &question) {
    static const std::set<std::string> calls = {
        "EnumProcesses",   "EnumProcessModules", "EnumServicesStatusA",
        "GetAdaptersInfo", "GetComputerNameA",   "GetDiskFreeSpaceExA",
        "GetDriveTypeA",   "GetModuleBaseNameA", "GetNetworkParams",
        "GetSystemInfo",   "GlobalMemoryStatus", "GlobalMemoryStatusEx",
        "OpenProcess",     "QueryServiceStatus", "PdhGetFormattedCounterValue",
    };
    return calls.contains(question[0]);
}

TEST(recorded_calls, are_answered_by_this_host_in_the_same_way) {
    test_host host;
    error_host = &error_ops_host;
    questioner asked;
    asked.ask_all();
    if (const char *path = getenv("TN_RECORD_CALLS")) {
        std::ofstream(path, std::ios::binary) << format_recorded_calls(asked.record);
        return;
    }
    if (wine_version() == nullptr || std::string(wine_version()) != "8.0")
        GTEST_SKIP() << "the record is of another host";
    recorded_calls record = read_recorded_calls("wine_calls.txt");
    int compared = 0;
    for (const auto &[question, answer] : asked.record.answers) {
        if (depends_on_machine(question)) continue;
        EXPECT_EQ(record.answer(question), answer) << testing::PrintToString(question);
        compared++;
    }
    EXPECT_GE(compared, 70);
}
