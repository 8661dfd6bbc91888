#include "platform/heap.h"
#include "probes/hw/ipmi_channel_ops.h"
#include "probes/hw/ipmi_device_linux.h"
#include "probes/hw/property_bag.h"

#include <cerrno>
#include <fcntl.h>

namespace {

constexpr int NO_DEVICE = -1;
constexpr uint8_t CCODE_TIMEOUT = 0xC3;

// Whatever the channel holds: a connection has the device, what is put to or got from has properties.
struct host_object {
    int device;
    wmi_object *properties;
};

host_object *object_of(wmi_object *object) {
    return reinterpret_cast<host_object *>(object);
}

uint32_t make_object(wmi_object **out, wmi_object *properties) {
    auto *made = heap_new<host_object>();
    if (made == nullptr) {
        free_property_bag(properties);
        return WBEM_NO_MEMORY;
    }
    *made = {.device = NO_DEVICE, .properties = properties};
    *out = reinterpret_cast<wmi_object *>(made);
    return WBEM_OK;
}

// The device is not there, or not for us.
uint32_t status_of_open(int error) {
    switch (error) {
    case ENOENT:
    case ENXIO:
    case ENODEV:
        return WBEM_INVALID_PARAMETER;
    case EACCES:
    case EPERM:
        return WBEM_ACCESS_DENIED;
    default:
        return WBEM_FAILED;
    }
}

// The device was there and is so no more: it has to be opened anew.
uint32_t status_of_exchange(int error) {
    switch (error) {
    case ENODEV:
    case ENXIO:
    case EBADF:
        return WBEM_SERVICE_RESTARTED;
    case ENOMEM:
        return WBEM_NO_MEMORY;
    default:
        return WBEM_FAILED;
    }
}

} // namespace

static uint32_t nothing_to_start() {
    return WBEM_OK;
}

static void nothing_to_stop() {}

static uint32_t create_locator(wmi_object **locator) {
    return make_object(locator, nullptr);
}

static uint32_t connect_server(wmi_object *, wide_text *, wmi_object **services) {
    return make_object(services, nullptr);
}

static uint32_t create_instance_enum(wmi_object *services, wide_text *, wmi_object **enumerator) {
    int device = ipmi_device->open(IPMI_DEVICE_PATH, O_RDWR | O_CLOEXEC);
    if (device < 0) return status_of_open(errno);
    object_of(services)->device = device;
    return make_object(enumerator, nullptr);
}

static uint32_t next_instance(wmi_object *, wmi_object **instance, uint32_t *count) {
    property_bag_guard properties(alloc_property_bag());
    wmi_value path = {.type = VALUE_BSTR};
    path.text = bag_alloc_text(IPMI_DEVICE_PATH);
    bool sound = properties != nullptr && path.text != nullptr &&
                 bag_put(properties.get(), "__PATH", &path) == WBEM_OK;
    bag_clear_value(&path);
    if (!sound) return WBEM_NO_MEMORY;
    *count = 1;
    return make_object(instance, properties.release());
}

static uint32_t get_object(wmi_object *, wide_text *, wmi_object **class_object) {
    return make_object(class_object, nullptr);
}

static uint32_t get_method(wmi_object *, const char *, wmi_object **parameters) {
    wmi_object *properties = alloc_property_bag();
    return properties != nullptr ? make_object(parameters, properties) : WBEM_NO_MEMORY;
}

static uint32_t put(wmi_object *parameters, const char *name, wmi_value *value) {
    return bag_put(object_of(parameters)->properties, name, value);
}

static uint32_t get(wmi_object *object, const char *name, wmi_value *value) {
    return bag_get(object_of(object)->properties, name, value);
}

static bool put_reply(wmi_object *outputs, const uint8_t *reply, uint32_t length) {
    return bag_put_number(outputs, "ResponseDataSize", static_cast<int32_t>(length)) == WBEM_OK &&
           bag_put_byte(outputs, "CompletionCode", reply[0]) == WBEM_OK &&
           bag_put_bytes(outputs, "ResponseData", reply, length) == WBEM_OK;
}

// A reply that doesn't come is one that says so.
static uint32_t exec_method(wmi_object *services, const wmi_value *, const char *, wmi_object *parameters,
                            wmi_object **outputs) {
    wmi_object *request = object_of(parameters)->properties;
    uint32_t count = 0;
    const ipmi_message message = {.netfn = bag_byte(request, "NetworkFunction"),
                                  .lun = bag_byte(request, "Lun"),
                                  .command = bag_byte(request, "Command"),
                                  .data = bag_bytes(request, "RequestData", &count),
                                  .data_len = static_cast<uint32_t>(bag_number(request, "RequestDataSize"))};
    uint8_t reply[IPMI_REPLY_SIZE] = {};
    uint32_t length = 0;
    int error = ipmi_device_exchange(object_of(services)->device, &message, reply, &length);
    if (error == ETIMEDOUT) {
        reply[0] = CCODE_TIMEOUT;
        length = 1;
    } else if (error != 0) {
        return status_of_exchange(error);
    }
    property_bag_guard properties(alloc_property_bag());
    if (properties == nullptr || !put_reply(properties.get(), reply, length)) return WBEM_NO_MEMORY;
    return make_object(outputs, properties.release());
}

static void release(wmi_object *object) {
    host_object *released = object_of(object);
    if (released->device != NO_DEVICE) ipmi_device->close(released->device);
    free_property_bag(released->properties);
    heap_free(released);
}

const ipmi_channel_ops ipmi_channel_ops_host = {
    .CoInitialize = nothing_to_start,
    .CoUninitialize = nothing_to_stop,
    .CoInitializeSecurity = nothing_to_start,
    .CoCreateInstance = create_locator,
    .SysAllocString = bag_alloc_text,
    .SysFreeString = bag_free_text,
    .ConnectServer = connect_server,
    .CreateInstanceEnum = create_instance_enum,
    .Next = next_instance,
    .GetObject = get_object,
    .GetMethod = get_method,
    .Put = put,
    .ExecMethod = exec_method,
    .Get = get,
    .Release = release,
    .VariantClear = bag_clear_value,
    .SafeArrayCreateVector = bag_create_vector,
    .SafeArrayPutElement = bag_put_element,
    .SafeArrayAccessData = bag_access_data,
};
