// What the service checks ask of a host: its service manager.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t GENERIC_READ_ACCESS = 0x80000000;
inline constexpr uint32_t SERVICE_WIN32_KINDS = 48; // both kinds of service
inline constexpr uint32_t SERVICE_ALL_STATES = 3;
inline constexpr uint32_t SERVICE_QUERY_STATUS_ACCESS = 4;
inline constexpr uint32_t MORE_DATA = 234;

enum service_state : uint32_t {
    SERVICE_IS_STOPPED = 1,
    SERVICE_IS_STARTING = 2,
    SERVICE_IS_STOPPING = 3,
    SERVICE_IS_RUNNING = 4,
    SERVICE_IS_CONTINUING = 5,
    SERVICE_IS_PAUSING = 6,
    SERVICE_IS_PAUSED = 7,
};

struct service_status {
    uint32_t type;
    uint32_t current_state;
    uint32_t not_read[5];
};

// One service of a batch. The texts lie in the batch's buffer, behind the records.
struct service_record {
    const char *service_name;
    const char *display_name;
    service_status status;
};

struct service_manager; // an open service database
struct service;         // an open service

// Each call that fails leaves its reason in last_error().
struct services_ops {
    service_manager *(*OpenSCManagerA)(const char *machine, const char *database, uint32_t access);
    // Optional: whether OpenSCManagerA failed for this reason because the host has no service manager at all,
    // and not because of one that does not answer. Absent where every host has one.
    bool (*has_no_manager)(uint32_t error);
    void (*SetLastError)(uint32_t code);
    // Fills the buffer with whole records from the resume handle on, which is 0 at first. False with
    // MORE_DATA where more follow.
    bool (*EnumServicesStatusA)(service_manager *manager, uint32_t kinds, uint32_t states,
                                service_record *buffer, uint32_t size, uint32_t *out_needed,
                                uint32_t *out_count, uint32_t *resume);
    service *(*OpenServiceA)(service_manager *manager, const char *name, uint32_t access);
    bool (*QueryServiceStatus)(service *handle, service_status *out);
    void (*CloseServiceHandle)(service *handle);
    void (*CloseServiceHandle_manager)(service_manager *manager);
};

extern const services_ops services_ops_host;
extern const services_ops *services_host;
