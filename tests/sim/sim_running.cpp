#include "sim/sim_running.h"

#include "platform/text.h"
#include "probes/os/processes_ops.h"
#include "probes/os/services_ops.h"
#include "sim/host_sim.h"

#include <cstring>

static constexpr uint32_t CODE_MISSING = 2;
static constexpr uint32_t CODE_INPUT_OUTPUT = 5;

// What a call gives that fails.
static bool refuse(uint32_t code) {
    the_sim->last_error = code;
    return false;
}

// ---- processes: a snapshot is their number, and an id the place in the list, from 1

static bool sim_has(const char *name) {
    return !sim_fails("GetProcAddress", name) || refuse(CODE_MISSING);
}

static int32_t sim_snapshot(uint32_t, uint8_t *buffer, uint32_t) {
    if (sim_fails("ZwQuerySystemInformation")) {
        refuse(CODE_INPUT_OUTPUT);
        return INT32_MIN;
    }
    auto count = static_cast<uint32_t>(the_sim->running.processes.size());
    memcpy(buffer, &count, sizeof count);
    return 0;
}

static bool sim_next_process(process_walk *walk, char *name, uint32_t size) {
    uint32_t count = 0;
    memcpy(&count, walk->snapshot, sizeof count);
    if (walk->position == count) return false;
    copy_bounded(name, the_sim->running.processes[walk->position++].c_str(), size);
    return true;
}

static bool sim_enum_processes(uint32_t *ids, uint32_t size, uint32_t *out_returned) {
    if (sim_fails("EnumProcesses")) return refuse(CODE_INPUT_OUTPUT);
    uint32_t room = size / 4;
    uint32_t count = 0;
    while (count < room && count < the_sim->running.processes.size())
        ids[count] = count + 1, count++;
    *out_returned = count * 4;
    return true;
}

static process *sim_open_process(uint32_t, uint32_t id) {
    if (!sim_fails("OpenProcess", id) && id > 0 && id <= the_sim->running.processes.size())
        return reinterpret_cast<process *>(uintptr_t{id});
    refuse(CODE_MISSING);
    return nullptr;
}

static bool sim_modules(process *, process_module **out_first, uint32_t, uint32_t *out_needed) {
    *out_first = nullptr;
    *out_needed = 8;
    return !sim_fails("EnumProcessModules") || refuse(CODE_INPUT_OUTPUT);
}

static bool sim_module_name(process *handle, process_module *, char *name, uint32_t size) {
    if (sim_fails("GetModuleBaseNameA")) return refuse(CODE_INPUT_OUTPUT);
    copy_bounded(name, the_sim->running.processes[reinterpret_cast<uintptr_t>(handle) - 1].c_str(), size);
    return true;
}

static void sim_close_process(process *) {}

// ---- services, one a batch; an open one is its record

static service_manager *sim_open_manager(const char *, const char *, uint32_t) {
    bool there = the_sim->running.has_service_manager;
    if (there && !sim_fails("OpenSCManagerA")) return reinterpret_cast<service_manager *>(1);
    refuse(there ? CODE_INPUT_OUTPUT : CODE_MISSING);
    return nullptr;
}

static bool sim_has_no_manager(uint32_t error) {
    return error == CODE_MISSING;
}

static void sim_set_last_error(uint32_t code) {
    the_sim->last_error = code;
}

static bool sim_enum_services(service_manager *, uint32_t, uint32_t, service_record *batch, uint32_t,
                              uint32_t *, uint32_t *out_count, uint32_t *resume) {
    const auto &services = the_sim->running.services;
    if (sim_fails("EnumServicesStatusA", *resume)) return refuse(CODE_INPUT_OUTPUT);
    if (*resume >= services.size()) return true;
    const auto &[name, service] = *std::next(services.begin(), *resume);
    *batch = {.service_name = name.c_str(),
              .display_name = service.display_name.c_str(),
              .status = {.current_state = service.state}};
    *out_count = 1;
    return ++*resume == services.size() || refuse(MORE_DATA);
}

static service *sim_open_service(service_manager *, const char *name, uint32_t) {
    auto found = the_sim->running.services.find(name);
    if (!sim_fails("OpenServiceA", name) && found != the_sim->running.services.end())
        return reinterpret_cast<service *>(&found->second);
    refuse(CODE_MISSING);
    return nullptr;
}

static bool sim_query_status(service *handle, service_status *out) {
    if (sim_fails("QueryServiceStatus")) return refuse(CODE_INPUT_OUTPUT);
    out->current_state = reinterpret_cast<sim_service *>(handle)->state;
    return true;
}

static void sim_close_service(service *) {}

static void sim_close_manager(service_manager *) {}

const processes_ops sim_processes = {
    .GetModuleHandleA = sim_has,
    .GetProcAddress = sim_has,
    .ZwQuerySystemInformation = sim_snapshot,
    .next_process = sim_next_process,
    .EnumProcesses = sim_enum_processes,
    .OpenProcess = sim_open_process,
    .EnumProcessModules = sim_modules,
    .GetModuleBaseNameA = sim_module_name,
    .CloseHandle = sim_close_process,
};

const services_ops sim_service_manager = {
    .OpenSCManagerA = sim_open_manager,
    .has_no_manager = sim_has_no_manager,
    .SetLastError = sim_set_last_error,
    .EnumServicesStatusA = sim_enum_services,
    .OpenServiceA = sim_open_service,
    .QueryServiceStatus = sim_query_status,
    .CloseServiceHandle = sim_close_service,
    .CloseServiceHandle_manager = sim_close_manager,
};
