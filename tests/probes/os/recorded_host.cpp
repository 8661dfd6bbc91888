#include "probes/os/recorded_host.h"

#include "platform/sockets_ops.h"
#include "probes/os/counter_names.h"
#include "probes/os/drives.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory.h"
#include "probes/os/memory_ops.h"
#include "probes/os/network_text.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/processes_ops.h"
#include "probes/os/services_ops.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

static recorded_host *recorded;

bool recorded_host::succeeds(const call_words &question) {
    const call_words &answer = ask(question);
    if (number_at(answer, 0) != 0) return true;
    host.last_error = static_cast<uint32_t>(number_at(answer, 1));
    return false;
}

static uint32_t status_of(const call_words &question) {
    return static_cast<uint32_t>(number_at(recorded->ask(question), 0));
}

static void copy_word(char *buffer, size_t size, const std::string &text) {
    snprintf(buffer, size, "%s", text.c_str());
}

// What is open, by the name that it was opened with.
struct recorded_handle {
    std::string name;
    int samples = 0;
};

template <class Handle>
static Handle *open_handle(const std::string &name) {
    recorded->handles++;
    return reinterpret_cast<Handle *>(new recorded_handle{name});
}

template <class Handle>
static recorded_handle *handle_of(Handle *handle) {
    return reinterpret_cast<recorded_handle *>(handle);
}

template <class Handle>
static void close_handle(Handle *handle) {
    recorded->handles--;
    delete handle_of(handle);
}

// ---- drives

static const drives_ops drives = {
    .drive_root = drive_letter_root,
    .GetDriveTypeA =
        [](const char *path) {
            return status_of({"GetDriveTypeA", path});
        },
    .GetDiskFreeSpaceExA =
        [](const char *path, uint64_t *available, uint64_t *total, uint64_t *total_free) {
            call_words question = {"GetDiskFreeSpaceExA", path};
            if (!recorded->succeeds(question)) return false;
            *available = number_at(recorded->ask(question), 1);
            *total = number_at(recorded->ask(question), 2);
            *total_free = number_at(recorded->ask(question), 3);
            return true;
        },
    .GetModuleHandleA =
        [](const char *module) {
            return status_of({"drives", "GetModuleHandleA", module}) != 0;
        },
    .GetProcAddress =
        [](const char *function) {
            return status_of({"drives", "GetProcAddress", function}) != 0;
        },
    .FindFirstVolumeMountPointA = [](const char *root, char *, uint32_t) -> mount_search * {
        EXPECT_FALSE(recorded->succeeds({"FindFirstVolumeMountPointA", root}));
        return nullptr;
    },
};

// ---- memory

static void fill_memory(const call_words &answer, size_t first, memory_status *out) {
    *out = {.length = static_cast<uint32_t>(number_at(answer, first)),
            .memory_load = static_cast<uint32_t>(number_at(answer, first + 1)),
            .total_phys = number_at(answer, first + 2),
            .available_phys = number_at(answer, first + 3),
            .total_page_file = number_at(answer, first + 4),
            .available_page_file = number_at(answer, first + 5),
            .total_virtual = number_at(answer, first + 6),
            .available_virtual = number_at(answer, first + 7)};
}

static const memory_ops memory = {
    .GetModuleHandleA =
        [](const char *module) {
            return status_of({"memory", "GetModuleHandleA", module}) != 0;
        },
    .GetProcAddress =
        [](const char *function) {
            return status_of({"memory", "GetProcAddress", function}) != 0;
        },
    .GlobalMemoryStatusEx =
        [](memory_status *out) {
            call_words question = {"GlobalMemoryStatusEx", word(out->length)};
            if (!recorded->succeeds(question)) return false;
            fill_memory(recorded->ask(question), 1, out);
            return true;
        },
    .GlobalMemoryStatus =
        [](memory_status *out) {
            fill_memory(recorded->ask({"GlobalMemoryStatus", word(out->length)}), 0, out);
        },
};

// ---- the host

// Reads "label address mask" as often as it stands there.
static size_t fill_list(const call_words &answer, size_t at, const std::string &label, record_buffer *buffer,
                        address_entry **list) {
    for (; text_at(answer, at) == label; at += 3)
        append_address(buffer, list, text_at(answer, at + 1).c_str(), text_at(answer, at + 2).c_str());
    return at;
}

static uint32_t get_network_params(network_params *out, uint32_t *size) {
    const call_words &answer = recorded->ask({"GetNetworkParams", word(*size)});
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    *size = static_cast<uint32_t>(number_at(answer, 1));
    if (number_at(answer, 0) != 0) return static_cast<uint32_t>(number_at(answer, 0));
    auto *params = take_record<network_params>(&buffer);
    copy_word(params->domain_name, sizeof params->domain_name, text_at(answer, 2));
    params->enable_routing = static_cast<uint32_t>(number_at(answer, 3));
    params->enable_proxy = static_cast<uint32_t>(number_at(answer, 4));
    fill_list(answer, 5, "server", &buffer, &params->dns_servers);
    return 0;
}

static void fill_hardware(const std::string &digits, adapter_facts *out) {
    out->hardware_length = static_cast<uint32_t>(digits.size() / 2);
    for (uint32_t i = 0; i < out->hardware_length; i++)
        out->hardware_address[i] =
            static_cast<uint8_t>(strtoul(digits.substr(size_t{2} * i, 2).c_str(), nullptr, 16));
}

// Reads one adapter and gives the place behind it.
static size_t fill_adapter(const call_words &answer, size_t at, record_buffer *buffer, adapter_facts *out) {
    copy_word(out->description, sizeof out->description, text_at(answer, at + 1));
    out->type = static_cast<uint32_t>(number_at(answer, at + 2));
    fill_hardware(text_at(answer, at + 3), out);
    out->lease_known = true;
    out->dhcp_enabled = number_at(answer, at + 4) != 0;
    copy_word(out->dhcp_server, sizeof out->dhcp_server, text_at(answer, at + 5));
    copy_word(out->primary_wins, sizeof out->primary_wins, text_at(answer, at + 6));
    copy_word(out->secondary_wins, sizeof out->secondary_wins, text_at(answer, at + 7));
    at = fill_list(answer, at + 8, "address", buffer, &out->addresses);
    return fill_list(answer, at, "gateway", buffer, &out->gateways);
}

static uint32_t get_adapters_info(adapter_facts *out, uint32_t *size) {
    const call_words &answer = recorded->ask({"GetAdaptersInfo", word(*size)});
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    *size = static_cast<uint32_t>(number_at(answer, 1));
    if (number_at(answer, 0) != 0) return static_cast<uint32_t>(number_at(answer, 0));
    adapter_facts *last = nullptr;
    for (size_t at = 2; text_at(answer, at) == "adapter";) {
        auto *adapter = take_record<adapter_facts>(&buffer);
        if (last != nullptr) last->next = adapter;
        last = adapter;
        at = fill_adapter(answer, at, &buffer, adapter);
    }
    return 0;
}

static const host_info_ops host_info = {
    .GetSystemInfo =
        [](system_facts *out) {
            const call_words &answer = recorded->ask({"GetSystemInfo"});
            out->processor_architecture = static_cast<uint16_t>(number_at(answer, 0));
            out->processors = static_cast<uint32_t>(number_at(answer, 1));
            out->active_processor_mask = number_at(answer, 2);
        },
    .GetVersionExA =
        [](version_facts *out) {
            const call_words &answer = recorded->ask({"GetVersionExA"});
            out->major_version = static_cast<uint32_t>(number_at(answer, 1));
            out->minor_version = static_cast<uint32_t>(number_at(answer, 2));
            out->build_number = static_cast<uint32_t>(number_at(answer, 3));
            out->platform_id = static_cast<uint32_t>(number_at(answer, 4));
            out->product_type = static_cast<uint8_t>(number_at(answer, 5));
            copy_word(out->service_pack, sizeof out->service_pack, text_at(answer, 6));
            return recorded->succeeds({"GetVersionExA"});
        },
    .GetComputerNameA =
        [](char *buffer, uint32_t size) {
            call_words question = {"GetComputerNameA", word(size)};
            if (!recorded->succeeds(question)) return false;
            copy_word(buffer, size, text_at(recorded->ask(question), 1));
            return true;
        },
    .GetNetworkParams = get_network_params,
    .GetAdaptersInfo = get_adapters_info,
};

static const sockets_ops sockets = {
    .gethostname =
        [](char *buffer, size_t size) {
            copy_word(buffer, size, "recorder");
            return true;
        },
};

// ---- counters. A counter is added to a query of its own.

static uint32_t add_counter(pdh_query *query, const char *path, pdh_counter **out) {
    uint32_t status = status_of({"PdhAddCounterA", path});
    if (status != PDH_OK) return status;
    handle_of(query)->name = path;
    *out = reinterpret_cast<pdh_counter *>(query);
    return status;
}

static uint32_t collect(pdh_query *query) {
    handle_of(query)->samples++;
    return status_of({"PdhCollectQueryData", handle_of(query)->name});
}

static uint32_t format_value(pdh_counter *counter, uint32_t, double *out) {
    std::string samples = word(std::min(handle_of(counter)->samples, 2));
    const call_words &answer =
        recorded->ask({"PdhGetFormattedCounterValue", handle_of(counter)->name, samples});
    *out = strtod(text_at(answer, 1).c_str(), nullptr);
    return static_cast<uint32_t>(number_at(answer, 0));
}

static uint32_t name_by_index(uint32_t index, char *name, uint32_t *size) {
    const call_words &answer = recorded->ask({"PdhLookupPerfNameByIndexA", word(index), word(*size)});
    copy_word(name, *size, text_at(answer, 2));
    *size = static_cast<uint32_t>(number_at(answer, 1));
    return static_cast<uint32_t>(number_at(answer, 0));
}

static uint32_t index_by_name(const char *name, uint32_t *out_index) {
    const call_words &answer = recorded->ask({"PdhLookupPerfIndexByNameA", name});
    *out_index = static_cast<uint32_t>(number_at(answer, 1));
    return static_cast<uint32_t>(number_at(answer, 0));
}

static uint32_t query_value(const char *name, char *buffer, uint32_t *size) {
    const call_words &answer = recorded->ask({"RegQueryValueExA", name, "all"});
    if (*size < number_at(answer, 1)) {
        const call_words &refusal = recorded->ask({"RegQueryValueExA", name, "1"});
        *size = static_cast<uint32_t>(number_at(refusal, 1));
        return static_cast<uint32_t>(number_at(refusal, 0));
    }
    std::string table;
    for (size_t i = 2; i < answer.size(); i++)
        table += answer[i] + '\0';
    table.resize(number_at(answer, 1));
    memcpy(buffer, table.data(), table.size());
    *size = static_cast<uint32_t>(table.size());
    return static_cast<uint32_t>(number_at(answer, 0));
}

static uint32_t enum_objects(char *, uint32_t *size, uint32_t detail, bool refresh) {
    const call_words &answer = recorded->ask({"PdhEnumObjectsA", word(detail), word(refresh ? 1 : 0)});
    *size = static_cast<uint32_t>(number_at(answer, 1));
    return static_cast<uint32_t>(number_at(answer, 0));
}

static uint32_t enum_items(const char *object, char *, uint32_t *counter_size, char *,
                           uint32_t *instance_size, uint32_t detail) {
    const call_words &answer = recorded->ask({"PdhEnumObjectItemsA", object, word(detail)});
    *counter_size = static_cast<uint32_t>(number_at(answer, 1));
    *instance_size = static_cast<uint32_t>(number_at(answer, 2));
    return static_cast<uint32_t>(number_at(answer, 0));
}

static const perf_counter_ops counters = {
    .PdhOpenQueryA =
        [](pdh_query **out) {
            *out = open_handle<pdh_query>("");
            return status_of({"PdhOpenQueryA"});
        },
    .PdhAddCounterA = add_counter,
    .PdhRemoveCounter = [](pdh_counter *) { return status_of({"PdhRemoveCounter"}); },
    .PdhCloseQuery =
        [](pdh_query *query) {
            close_handle(query);
            return status_of({"PdhCloseQuery"});
        },
    .PdhCollectQueryData = collect,
    .PdhGetFormattedCounterValue = format_value,
    .PdhLookupPerfNameByIndexA = name_by_index,
    .PdhLookupPerfIndexByNameA = index_by_name,
    .RegQueryValueExA = query_value,
    .PdhEnumObjectsA = enum_objects,
    .PdhEnumObjectItemsA = enum_items,
};

// ---- processes, the old way

static bool enum_processes(uint32_t *ids, uint32_t size, uint32_t *out_returned) {
    call_words question = {"EnumProcesses", word(size)};
    if (!recorded->succeeds(question)) return false;
    const call_words &answer = recorded->ask(question);
    for (size_t i = 1; i < answer.size(); i++)
        ids[i - 1] = static_cast<uint32_t>(number_at(answer, i));
    *out_returned = static_cast<uint32_t>((answer.size() - 1) * sizeof *ids);
    return true;
}

static process *open_process(uint32_t, uint32_t id) {
    return recorded->succeeds({"OpenProcess", word(id)}) ? open_handle<process>(word(id)) : nullptr;
}

static bool enum_modules(process *handle, process_module **, uint32_t, uint32_t *out_needed) {
    call_words question = {"EnumProcessModules", handle_of(handle)->name};
    if (!recorded->succeeds(question)) return false;
    *out_needed = static_cast<uint32_t>(number_at(recorded->ask(question), 1));
    return true;
}

static bool module_name(process *handle, process_module *, char *name, uint32_t size) {
    call_words question = {"GetModuleBaseNameA", handle_of(handle)->name};
    if (!recorded->succeeds(question)) return false;
    copy_word(name, size, text_at(recorded->ask(question), 1));
    return true;
}

static const processes_ops processes = {
    .EnumProcesses = enum_processes,
    .OpenProcess = open_process,
    .EnumProcessModules = enum_modules,
    .GetModuleBaseNameA = module_name,
    .CloseHandle = close_handle<process>,
};

// ---- services

// The texts stay where the record is.
static void fill_service(const call_words &answer, size_t at, service_record *out) {
    out->service_name = answer[at].c_str();
    out->display_name = answer[at + 1].c_str();
    out->status = {.type = static_cast<uint32_t>(number_at(answer, at + 2)),
                   .current_state = static_cast<uint32_t>(number_at(answer, at + 3))};
}

static bool enum_services(service_manager *, uint32_t, uint32_t, service_record *buffer, uint32_t size,
                          uint32_t *out_needed, uint32_t *out_count, uint32_t *resume) {
    const call_words &answer = recorded->ask({"EnumServicesStatusA", word(*resume), word(size)});
    recorded->host.last_error = static_cast<uint32_t>(number_at(answer, 1));
    *out_needed = static_cast<uint32_t>(number_at(answer, 2));
    *resume = static_cast<uint32_t>(number_at(answer, 3));
    *out_count = 0;
    for (size_t at = 4; at + 4 <= answer.size(); at += 4)
        fill_service(answer, at, &buffer[(*out_count)++]);
    return number_at(answer, 0) != 0;
}

static bool query_status(service *handle, service_status *out) {
    call_words question = {"QueryServiceStatus", handle_of(handle)->name};
    if (!recorded->succeeds(question)) return false;
    out->type = static_cast<uint32_t>(number_at(recorded->ask(question), 1));
    out->current_state = static_cast<uint32_t>(number_at(recorded->ask(question), 2));
    return true;
}

static const services_ops services = {
    .OpenSCManagerA = [](const char *, const char *database, uint32_t) -> service_manager * {
        if (!recorded->succeeds({"OpenSCManagerA", database})) return nullptr;
        return open_handle<service_manager>(database);
    },
    .SetLastError = [](uint32_t code) { recorded->host.last_error = code; },
    .EnumServicesStatusA = enum_services,
    .OpenServiceA = [](service_manager *, const char *name, uint32_t) -> service * {
        return recorded->succeeds({"OpenServiceA", name}) ? open_handle<service>(name) : nullptr;
    },
    .QueryServiceStatus = query_status,
    .CloseServiceHandle = close_handle<service>,
    .CloseServiceHandle_manager = close_handle<service_manager>,
};

recorded_host::recorded_host(const std::string &name) : calls(read_recorded_calls(name)) {
    recorded = this;
    drives_host = &drives;
    memory_host = &memory;
    host_info_host = &host_info;
    sockets_host = &sockets;
    perf_counter_host = &counters;
    processes_host = &processes;
    services_host = &services;
    drives_reset();
    memory_reset();
    counter_names_reset();
}

recorded_host::~recorded_host() {
    counter_names_reset();
    EXPECT_EQ(handles, 0);
    EXPECT_EQ(host.blocks, 0);
    drives_host = nullptr;
    memory_host = nullptr;
    host_info_host = nullptr;
    sockets_host = nullptr;
    perf_counter_host = nullptr;
    processes_host = nullptr;
    services_host = nullptr;
    recorded = nullptr;
}
