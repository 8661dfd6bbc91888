#include "probes/os/services.h"

#include "devtree/scan_device.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/services_ops.h"

#include <algorithm>
#include <cstring>

const services_ops *services_host;

namespace {

constexpr uint32_t BATCH_SIZE = 4096;
constexpr uint32_t BATCH_RECORDS = BATCH_SIZE / sizeof(service_record);
constexpr uint32_t DESCRIPTION_SERVICE = 18;

// By the state's number, from 1.
constexpr const char *STATE_TEXTS[] = {
    "The service is stopped", "The service is starting",   "The service is stopping",
    "The service is running", "The service is continuing", "The service is pausing",
    "The service is paused",
};

void close_manager(service_manager *manager) {
    services_host->CloseServiceHandle_manager(manager);
}

void close_service(service *handle) {
    services_host->CloseServiceHandle(handle);
}

using manager_guard = guard<service_manager, close_manager>;
using service_guard = guard<service, close_service>;
using devices_guard = guard<devnode, free_devnode_list>;
using batch_guard = guard<service_record, heap_free>;

} // namespace

static const char *state_text(uint32_t state) {
    bool known = state >= 1 && state <= std::size(STATE_TEXTS);
    return known ? STATE_TEXTS[state - 1] : "Unknown service state";
}

static manager_guard open_manager() {
    return manager_guard(services_host->OpenSCManagerA(nullptr, "ServicesActive", GENERIC_READ_ACCESS));
}

static const char *manager_failure() {
    return format_error("Error opening the Service Control Manager: %s", last_error_text());
}

// A name is cut at what it may have on the wire, where a longer one would keep the whole tree back. A service
// whose id is longer is none that a server could name.
static void report_service(const service_record &record, devices_guard *found) {
    if (strlen(record.service_name) > NAME_LIMIT) {
        agent_log(LOG_WARNING, "Service name too long: %s", record.service_name);
        return;
    }
    agent_log(LOG_TRACE, "Reporting service %s", record.service_name);
    char name[NAME_LIMIT + 1];
    copy_bounded(name, record.display_name, sizeof name);
    devnode *list = found->release();
    put_in_front(&list, new_scan_device({.id = record.service_name,
                                         .name = name,
                                         .comment = state_text(record.status.current_state),
                                         .type = TYPE_BITMAP,
                                         .unit = "",
                                         .description = DESCRIPTION_SERVICE}));
    found->reset(list);
}

// More to follow without a step ahead would never come to an end. Some hosts leave the handle where it was.
static const char *list_services(service_manager *manager, service_record *batch, devices_guard *found) {
    uint32_t resume = 0;
    bool last = false;
    while (!last) {
        uint32_t needed = 0;
        uint32_t count = 0;
        uint32_t start = resume;
        services_host->SetLastError(0);
        last = services_host->EnumServicesStatusA(manager, SERVICE_WIN32_KINDS, SERVICE_ALL_STATES, batch,
                                                  BATCH_SIZE, &needed, &count, &resume);
        if (!last && (last_error() != MORE_DATA || resume == start))
            return format_error("Error retriveing list of services: %s", last_error_text());
        count = std::min(count, BATCH_RECORDS);
        for (uint32_t i = 0; i < count; i++)
            report_service(batch[i], found);
    }
    return nullptr;
}

const char *scan_services(devtree *root) {
    agent_log(LOG_TRACE, "In scan_services");
    manager_guard manager = open_manager();
    if (manager == nullptr) {
        bool none = services_host->has_no_manager != nullptr && services_host->has_no_manager(last_error());
        return none ? nullptr : manager_failure();
    }
    batch_guard batch(static_cast<service_record *>(heap_alloc(BATCH_SIZE)));
    if (batch == nullptr) return "Out of memory in scan_services";
    devices_guard found;
    if (auto *failure = list_services(manager.get(), batch.get(), &found)) return failure;
    if (found == nullptr) return nullptr;
    return offer_devices(root, "scm", "Services", "Service %0r", 0, found.release());
}

const char *check_service(devnode *device, resnode *result) {
    manager_guard manager = open_manager();
    if (manager == nullptr) return manager_failure();
    service_guard handle(services_host->OpenServiceA(manager.get(), device->id, SERVICE_QUERY_STATUS_ACCESS));
    if (handle == nullptr) return format_error("Error opening the service: %s", last_error_text());
    service_status status = {};
    if (!services_host->QueryServiceStatus(handle.get(), &status))
        return format_error("Error getting service status: %s", last_error_text());
    result->value = status.current_state == SERVICE_IS_RUNNING ? 1 : 0;
    text_replace(&result->comment, text_copy(state_text(status.current_state)));
    return nullptr;
}
