#include "probes/os/perf_counter.h"

#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/perf_counter_ops.h"

#include <cstdio>

const perf_counter_ops *perf_counter_host;

namespace {

constexpr size_t PATH_SIZE = 200;
constexpr uint32_t SECOND_SAMPLE_DELAY = 1000; // milliseconds

struct status_name {
    uint32_t status;
    const char *name;
};

constexpr status_name STATUS_NAMES[] = {
    {PDH_MEMORY_ALLOCATION_FAILURE, "PDH_MEMORY_ALLOCATION_FAILURE"},
    {PDH_INVALID_HANDLE, "PDH_INVALID_HANDLE"},
    {PDH_INVALID_ARGUMENT, "PDH_INVALID_ARGUMENT"},
    {PDH_FUNCTION_NOT_FOUND, "PDH_FUNCTION_NOT_FOUND"},
    {PDH_CSTATUS_NO_COUNTERNAME, "PDH_CSTATUS_NO_COUNTERNAME"},
    {PDH_CSTATUS_BAD_COUNTERNAME, "PDH_CSTATUS_BAD_COUNTERNAME"},
    {PDH_CSTATUS_NO_COUNTER, "PDH_CSTATUS_NO_COUNTER"},
    {PDH_CSTATUS_NO_MACHINE, "PDH_CSTATUS_NO_MACHINE"},
};

// The text of the no-data failure, and of no other: its address is what tells it.
char no_data_text[1024];

} // namespace

static const char *find_status_name(uint32_t status) {
    for (const status_name &row : STATUS_NAMES)
        if (row.status == status) return row.name;
    return "Unknown error";
}

void format_counter_path(const char *object, const char *instance, const char *counter, char *buffer,
                         size_t size) {
    if (instance != nullptr)
        snprintf(buffer, size, "\\%s(%s)\\%s", object, instance, counter);
    else
        snprintf(buffer, size, "\\%s\\%s", object, counter);
}

static bool open_counter(perf_counter *record, bool report_errors) {
    if (perf_counter_host->PdhOpenQueryA(&record->query) != PDH_OK) {
        record->query = nullptr;
        agent_log(LOG_WARNING, "Error creating query for counter");
        return false;
    }
    uint32_t status = perf_counter_host->PdhAddCounterA(record->query, record->path, &record->counter);
    if (status == PDH_OK) return true;
    record->counter = nullptr;
    if (report_errors)
        agent_log(LOG_WARNING, "Error (%s) adding counter \"%s\" to query", find_status_name(status),
                  record->path);
    return false;
}

perf_counter *create_counter(const char *object, const char *instance, const char *counter,
                             bool report_errors) {
    char path[PATH_SIZE];
    format_counter_path(object, instance, counter, path, sizeof path);
    perf_counter_guard record(heap_new<perf_counter>());
    if (record != nullptr) record->path = text_copy(path);
    if (record == nullptr || record->path == nullptr) {
        agent_log(LOG_WARNING, "Out of memory in create_counter");
        return nullptr;
    }
    return open_counter(record.get(), report_errors) ? record.release() : nullptr;
}

perf_counter *create_counter_english(const char *object, const char *instance, const char *counter,
                                     bool report_errors) {
    char national_object[COUNTER_NAME_SIZE];
    char national_counter[COUNTER_NAME_SIZE];
    if (!translate_counter_name_to_national(national_object, sizeof national_object, object)) return nullptr;
    if (!translate_counter_name_to_national(national_counter, sizeof national_counter, counter))
        return nullptr;
    return create_counter(national_object, instance, national_counter, report_errors);
}

void free_counter(perf_counter *counter) {
    if (counter == nullptr) return;
    if (counter->counter != nullptr) perf_counter_host->PdhRemoveCounter(counter->counter);
    if (counter->query != nullptr) perf_counter_host->PdhCloseQuery(counter->query);
    heap_free(counter->path);
    heap_free(counter);
}

perf_counter *find_device_counter(const devnode *device) {
    if (device->state == nullptr) return nullptr;
    if (device->state_magic != COUNTER_STATE_MAGIC)
        fatal("Internal consistency error in find_device_counter()");
    return static_cast<perf_counter *>(device->state);
}

void set_counter_state(devnode *device, perf_counter *counter) {
    if (counter == nullptr) return;
    device->state = counter;
    device->state_magic = COUNTER_STATE_MAGIC;
    device->state_free = free_counter_state;
}

void free_counter_state(devnode *device) {
    if (device->state_magic != COUNTER_STATE_MAGIC)
        fatal("Internal consistency error in free_counter_state()");
    free_counter(static_cast<perf_counter *>(device->state));
}

static const char *collect_sample(const perf_counter *counter) {
    uint32_t status = perf_counter_host->PdhCollectQueryData(counter->query);
    if (status == PDH_OK) return nullptr;
    if (status == PDH_NO_DATA) {
        snprintf(no_data_text, sizeof no_data_text,
                 "Couldn't collect query data for %s: The query does not currently contain any counters.",
                 counter->path);
        return no_data_text;
    }
    if (status == PDH_INVALID_HANDLE)
        return format_error("Couldn't collect query data for %s: The query handle is not valid.",
                            counter->path);
    return format_error("Couldn't collect query data for %s: %s", counter->path, error_text(status));
}

static const char *format_failure(uint32_t status) {
    switch (status) {
    case PDH_INVALID_HANDLE:
        return "Get INVALID_HANDLE from GetFormattedCounterValue() in get_counter_value()";
    case PDH_INVALID_ARGUMENT:
        return "Got INVALID_ARGUMENT from GetFormattedCounterValue() in get_counter_value()";
    case PDH_INVALID_DATA:
        return "Got INVALID_DATA from GetFormattedCounterValue() in get_counter_value()";
    default:
        return format_error("Got unknown error (%d) from GetFormattedCounterValue() in get_counter_value()",
                            static_cast<int>(status));
    }
}

const char *get_counter_value(double *out, perf_counter *counter) {
    for (int tries = 1;; tries++) {
        if (auto *failure = collect_sample(counter)) return failure;
        double value = 0;
        uint32_t status =
            perf_counter_host->PdhGetFormattedCounterValue(counter->counter, PDH_FMT_DOUBLE, &value);
        if (status == PDH_OK) {
            *out = value;
            return nullptr;
        }
        if (status != PDH_INVALID_DATA || tries == 2) return format_failure(status);
        clock_host->Sleep(SECOND_SAMPLE_DELAY);
    }
}

bool is_no_data_failure(const char *failure) {
    return failure == no_data_text;
}

const char *get_device_value(double *out, devnode *device) {
    const char *failure = get_counter_value(out, find_device_counter(device));
    if (is_no_data_failure(failure)) {
        device->state_free(device);
        clear_state(device);
    }
    return failure;
}

// The groups above the device are the object, or the object and the instance; the family's own group, which
// alone has nothing above it, tells which.
static perf_counter *create_device_counter(const devnode *device) {
    const devtree *own = device->parent;
    const devtree *above = own->parent;
    if (above == nullptr || above->parent == nullptr)
        return create_counter_english(own->id, nullptr, device->id, true);
    return create_counter_english(above->id, own->id, device->id, true);
}

const char *check_perfcnt(devnode *device, resnode *result) {
    if (find_device_counter(device) == nullptr) {
        agent_log(LOG_TRACE, "Creating counter: \"%s\"", device->id);
        set_counter_state(device, create_device_counter(device));
        if (device->state == nullptr) return "Error creating new counter";
    }
    double value = -1.0;
    const char *failure = get_device_value(&value, device);
    if (is_no_data_failure(failure))
        return format_error("Get value for counter failed and caused reset of counter state: %s", failure);
    if (failure != nullptr) return format_error("Could not get counter value: %s", failure);
    result->real_value = value;
    return nullptr;
}
