#include "probes/hw/scripted_channel.h"

#include "probes/hw/property_bag.h"

#include <algorithm>

scripted_channel *the_channel;

namespace {

// The service's own memory is never refused.
struct own_memory {
    uint32_t *failing = the_channel->failing_allocation;
    uint32_t kept = failing != nullptr ? *failing : 0;

    own_memory() { set(0); }
    ~own_memory() { set(kept); }
    own_memory(const own_memory &) = delete;
    own_memory &operator=(const own_memory &) = delete;
    void set(uint32_t n) const {
        if (failing != nullptr) *failing = n;
    }
};

wmi_object *new_object() {
    the_channel->objects++;
    return alloc_property_bag();
}

void note(const std::string &step) {
    if (the_channel->keeps_steps) the_channel->steps.push_back(step);
}

// The step's scripted status, 0 without one.
uint32_t make_step(const char *name, const std::string &about = "") {
    note(about.empty() ? name : name + (" " + about));
    if (the_channel->statuses.empty()) return 0;
    auto found = the_channel->statuses.find(name);
    if (found == the_channel->statuses.end() || found->second.empty()) return 0;
    uint32_t status = found->second.front();
    found->second.pop_front();
    return status;
}

std::string text_of(const void *text) {
    return static_cast<const char *>(text);
}

uint32_t give(uint32_t status, wmi_object **out) {
    if ((status & 0x80000000) == 0) *out = new_object();
    return status;
}

uint32_t initialize() {
    uint32_t status = make_step("CoInitialize");
    if (status <= 1) the_channel->started++;
    return status;
}

void uninitialize() {
    make_step("CoUninitialize");
    the_channel->started--;
}

uint32_t initialize_security() {
    return make_step("CoInitializeSecurity");
}

uint32_t create_locator(wmi_object **locator) {
    own_memory own;
    return give(make_step("CoCreateInstance"), locator);
}

wide_text *alloc_text(const char *text) {
    own_memory own;
    if (make_step("SysAllocString", text) != 0) return nullptr;
    the_channel->texts++;
    return bag_alloc_text(text);
}

void free_text(wide_text *text) {
    if (text != nullptr) the_channel->texts--;
    bag_free_text(text);
}

// The connection's namespace is a property of it.
uint32_t connect_server(wmi_object *, wide_text *name_space, wmi_object **services) {
    own_memory own;
    uint32_t status = make_step("ConnectServer", text_of(name_space));
    if (status == 0 && !the_channel->namespaces.contains(text_of(name_space))) status = 0x8004100E;
    if (give(status, services) != 0) return status;
    wmi_value value = {.type = VALUE_BSTR};
    value.text = name_space;
    return bag_put(*services, "namespace", &value);
}

uint32_t create_instance_enum(wmi_object *services, wide_text *class_name, wmi_object **enumerator) {
    own_memory own;
    uint32_t status = make_step("CreateInstanceEnum", text_of(class_name));
    wmi_value value = {};
    bag_get(services, "namespace", &value);
    if (status == 0 && !the_channel->class_namespaces.contains(text_of(value.text)))
        status = WBEM_INVALID_PARAMETER;
    bag_clear_value(&value);
    return give(status, enumerator);
}

uint32_t next_object(wmi_object *, wmi_object **instance, uint32_t *count) {
    own_memory own;
    uint32_t status = make_step("Next");
    if ((status & 0x80000000) != 0) return status;
    *count = the_channel->instances;
    if (*count != 1) return the_channel->next_status;
    give(0, instance);
    wmi_value value = {.type = VALUE_BSTR};
    value.text = bag_alloc_text("\\\\.\\ROOT\\WMI:Microsoft_IPMI.InstanceName=\"0\"");
    status = bag_put(*instance, "__PATH", &value);
    bag_clear_value(&value);
    return status;
}

uint32_t get_object(wmi_object *, wide_text *class_name, wmi_object **class_object) {
    own_memory own;
    return give(make_step("GetObject", text_of(class_name)), class_object);
}

uint32_t get_method(wmi_object *, const char *method, wmi_object **parameters) {
    own_memory own;
    uint32_t status = make_step("GetMethod", method);
    return the_channel->gives_parameters ? give(status, parameters) : status;
}

std::string words_of(const wmi_value *value) {
    std::string text = std::to_string(value->type);
    if (value->type == VALUE_UI1) return text + " " + std::to_string(value->byte);
    if (value->type == VALUE_I4) return text + " " + std::to_string(value->number);
    const uint8_t *bytes = nullptr;
    uint32_t count = 0;
    bag_access_data(value->bytes, &bytes, &count);
    for (uint32_t i = 0; i < count; i++)
        text += " " + std::to_string(bytes[i]);
    return text;
}

uint32_t put(wmi_object *parameters, const char *name, wmi_value *value) {
    own_memory own;
    uint32_t status =
        make_step(("Put " + std::string(name)).c_str(), the_channel->keeps_steps ? words_of(value) : "");
    return status != 0 ? status : bag_put(parameters, name, value);
}

uint32_t exec_method(wmi_object *, const wmi_value *path, const char *method, wmi_object *parameters,
                     wmi_object **outputs) {
    own_memory own;
    uint32_t status = make_step("ExecMethod", text_of(path->text) + " " + method);
    if (status != 0) return status;
    uint32_t count = 0;
    const uint8_t *data = bag_bytes(parameters, "RequestData", &count);
    auto size = static_cast<size_t>(bag_number(parameters, "RequestDataSize"));
    std::vector<uint8_t> reply =
        the_channel->bmc.answer({.netfn = bag_byte(parameters, "NetworkFunction"),
                                 .lun = bag_byte(parameters, "Lun"),
                                 .command = bag_byte(parameters, "Command"),
                                 .data = std::vector<uint8_t>(data, data + std::min<size_t>(size, count))});
    if (!the_channel->gives_outputs) return 0;
    give(0, outputs);
    bag_put_number(*outputs, "ResponseDataSize",
                   the_channel->response_size.value_or(static_cast<int32_t>(reply.size())));
    bag_put_byte(*outputs, "CompletionCode", reply.empty() ? uint8_t{0} : reply[0]);
    bag_put_bytes(*outputs, "ResponseData", reply.data(), static_cast<uint32_t>(reply.size()));
    return 0;
}

uint32_t get(wmi_object *object, const char *name, wmi_value *value) {
    own_memory own;
    uint32_t status = make_step(("Get " + std::string(name)).c_str());
    if (status != 0) return status;
    auto wrong = the_channel->output_types.find(name);
    if (wrong == the_channel->output_types.end()) return bag_get(object, name, value);
    *value = {.type = wrong->second};
    return 0;
}

void release(wmi_object *object) {
    the_channel->objects--;
    free_property_bag(object);
}

byte_array *create_vector(uint32_t count) {
    own_memory own;
    return make_step("SafeArrayCreateVector", std::to_string(count)) != 0 ? nullptr
                                                                          : bag_create_vector(count);
}

uint32_t put_element(byte_array *array, int32_t index, uint8_t byte) {
    uint32_t status = make_step("SafeArrayPutElement");
    return status != 0 ? status : bag_put_element(array, index, byte);
}

uint32_t access_data(byte_array *array, const uint8_t **bytes, uint32_t *count) {
    uint32_t status = make_step("SafeArrayAccessData");
    return status != 0 ? status : bag_access_data(array, bytes, count);
}

} // namespace

const ipmi_channel_ops scripted_channel_ops = {
    .CoInitialize = initialize,
    .CoUninitialize = uninitialize,
    .CoInitializeSecurity = initialize_security,
    .CoCreateInstance = create_locator,
    .SysAllocString = alloc_text,
    .SysFreeString = free_text,
    .ConnectServer = connect_server,
    .CreateInstanceEnum = create_instance_enum,
    .Next = next_object,
    .GetObject = get_object,
    .GetMethod = get_method,
    .Put = put,
    .ExecMethod = exec_method,
    .Get = get,
    .Release = release,
    .VariantClear = bag_clear_value,
    .SafeArrayCreateVector = create_vector,
    .SafeArrayPutElement = put_element,
    .SafeArrayAccessData = access_data,
};

scripted_channel::scripted_channel() {
    the_channel = this;
    ipmi_channel_host = &scripted_channel_ops;
}

scripted_channel::~scripted_channel() {
    ipmi_channel_host = nullptr;
    the_channel = nullptr;
}

int scripted_channel::count(const std::string &step) const {
    return static_cast<int>(std::count_if(steps.begin(), steps.end(), [&](const std::string &made) {
        return made == step || made.starts_with(step + " ");
    }));
}
