#include "probes/os/services_ops.h"

#include <cstddef>
#include <windows.h>

// The host fills the caller's buffer itself.
static_assert(sizeof(service_record) == sizeof(ENUM_SERVICE_STATUSA));
static_assert(offsetof(service_record, display_name) == offsetof(ENUM_SERVICE_STATUSA, lpDisplayName));
static_assert(offsetof(service_record, status) == offsetof(ENUM_SERVICE_STATUSA, ServiceStatus));
static_assert(sizeof(service_status) == sizeof(SERVICE_STATUS));
static_assert(offsetof(service_status, current_state) == offsetof(SERVICE_STATUS, dwCurrentState));

static SC_HANDLE handle_of(service_manager *manager) {
    return reinterpret_cast<SC_HANDLE>(manager);
}

static SC_HANDLE handle_of(service *opened) {
    return reinterpret_cast<SC_HANDLE>(opened);
}

static service_manager *open_manager(const char *machine, const char *database, uint32_t access) {
    return reinterpret_cast<service_manager *>(OpenSCManagerA(machine, database, access));
}

static void set_last_error(uint32_t code) {
    SetLastError(code);
}

static bool enum_services(service_manager *manager, uint32_t kinds, uint32_t states, service_record *buffer,
                          uint32_t size, uint32_t *out_needed, uint32_t *out_count, uint32_t *resume) {
    DWORD needed = 0;
    DWORD count = 0;
    DWORD from = *resume;
    bool last =
        EnumServicesStatusA(handle_of(manager), kinds, states,
                            reinterpret_cast<ENUM_SERVICE_STATUSA *>(buffer), size, &needed, &count, &from);
    *out_needed = needed;
    *out_count = count;
    *resume = from;
    return last;
}

static service *open_service(service_manager *manager, const char *name, uint32_t access) {
    return reinterpret_cast<service *>(OpenServiceA(handle_of(manager), name, access));
}

static bool query_status(service *opened, service_status *out) {
    return QueryServiceStatus(handle_of(opened), reinterpret_cast<SERVICE_STATUS *>(out));
}

static void close_service(service *opened) {
    CloseServiceHandle(handle_of(opened));
}

static void close_manager(service_manager *manager) {
    CloseServiceHandle(handle_of(manager));
}

const services_ops services_ops_host = {
    .OpenSCManagerA = open_manager,
    .SetLastError = set_last_error,
    .EnumServicesStatusA = enum_services,
    .OpenServiceA = open_service,
    .QueryServiceStatus = query_status,
    .CloseServiceHandle = close_service,
    .CloseServiceHandle_manager = close_manager,
};
